#pragma once

#include <QObject>
#include <QQmlEngine>

// Conventions of the desktop the windows follow where the toolkit leaves them open.
class DesktopStyle : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(int toolTipDelay READ toolTipDelay CONSTANT)
public:
    // How long the pointer rests on a control before its hover help opens; the wake-up delay of the
    // toolkit's own widgets on this desktop.
    static constexpr int ToolTipDelayMs = 700;

    using QObject::QObject;

    static int toolTipDelay() { return ToolTipDelayMs; }
};
