#pragma once

#include <QQuickView>
#include <QRect>
#include <QVariantMap>

class QQmlEngine;

// A frameless window above all others and off the task bar, whose QML content draws rounded glass and its
// own shadow. The shadow needs room, so the native window is larger than the glass by a margin on every
// side; the rest of the shell thinks in glass frames.
class GlassWindow : public QQuickView {
    Q_OBJECT
public:
    static constexpr int ShadowMargin = 28;

    // Frameless, above other windows, off the task bar, and see-through where nothing is drawn.
    static void makeFloating(QQuickView *view);

    GlassWindow(QQmlEngine *engine, const QUrl &source, QVariantMap properties, QWindow *parent = nullptr);

    // The glass's frame on the screen.
    QRect contentFrame() const;
    void setContentFrame(const QRect &frame);
    // Places the glass in the middle of the visible area of the window's screen.
    void center();
};
