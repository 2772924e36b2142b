#pragma once

#include <QPoint>
#include <QPointF>
#include <QQmlEngine>
#include <QQuickItem>

// A piece of a frameless window's background that moves the window while the left button is held on it.
// The app moves the window itself instead of asking the window manager to: the move then ends with the
// release on every window manager, and presses on controls above it never reach it.
class WindowDragArea : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(bool dragging READ isDragging NOTIFY draggingChanged)

public:
    explicit WindowDragArea(QQuickItem *parent = nullptr);

    bool isDragging() const { return m_dragging; }

signals:
    void draggingChanged();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseUngrabEvent() override;

private:
    void setDragging(bool dragging);

    bool m_pressed = false;
    bool m_dragging = false;
    QPointF m_pressPointer; // on the screen
    QPoint m_pressWindow;   // the window's position at the press
};
