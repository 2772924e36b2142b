#pragma once

#include <QQuickView>

class QQmlEngine;

// A hover help shown beside a control, in a window of its own so it may reach beyond a small window.
// It never takes the mouse or the keyboard.
class HelpTipWindow : public QQuickView {
    Q_OBJECT
public:
    explicit HelpTipWindow(QQmlEngine *engine);

    QString text() const;
    // Opens with `text` below `anchor` (screen coordinates), or above it at the bottom of the screen.
    void showBeside(const QRect &anchor, const QString &text);
};
