#include "WindowDragArea.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QQuickWindow>
#include <QStyleHints>

WindowDragArea::WindowDragArea(QQuickItem *parent)
    : QQuickItem(parent)
{
    setAcceptedMouseButtons(Qt::LeftButton);
}

void WindowDragArea::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !window()) {
        event->ignore();
        return;
    }
    m_pressed = true;
    m_pressPointer = event->globalPosition();
    // Where the window stands as the window system reported it with this press, not as last stored.
    m_pressWindow = (event->globalPosition() - event->scenePosition()).toPoint();
    // A list around it must not take the press over to scroll.
    setKeepMouseGrab(true);
    event->accept();
}

void WindowDragArea::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_pressed || !window())
        return;
    const QPoint delta = (event->globalPosition() - m_pressPointer).toPoint();
    if (!m_dragging && delta.manhattanLength() >= QGuiApplication::styleHints()->startDragDistance())
        setDragging(true);
    if (m_dragging)
        window()->setPosition(m_pressWindow + delta);
}

void WindowDragArea::mouseReleaseEvent(QMouseEvent *event)
{
    Q_UNUSED(event);
    m_pressed = false;
    setKeepMouseGrab(false);
    setDragging(false);
}

void WindowDragArea::mouseUngrabEvent()
{
    m_pressed = false;
    setKeepMouseGrab(false);
    setDragging(false);
}

void WindowDragArea::setDragging(bool dragging)
{
    if (m_dragging == dragging)
        return;
    m_dragging = dragging;
    emit draggingChanged();
}
