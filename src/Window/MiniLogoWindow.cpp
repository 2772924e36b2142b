#include "MiniLogoWindow.h"

#include "AppSettings.h"
#include "Core/WindowGeometry.h"
#include "Window/GlassWindow.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>
#include <QStyleHints>

MiniLogoWindow::MiniLogoWindow(QQmlEngine *engine, AppSettings &settings)
    : QQuickView(engine, nullptr)
{
    GlassWindow::makeFloating(this);
    setTitle(QStringLiteral("Quillmoor"));
    setResizeMode(QQuickView::SizeRootObjectToView);
    setInitialProperties({{QStringLiteral("settings"), QVariant::fromValue(&settings)}});
    setSource(QUrl(QStringLiteral("qrc:/qt/qml/Quillmoor/MiniLogoView.qml")));
    resize(WindowGeometry::LogoSize, WindowGeometry::LogoSize);

    m_dragEndTimer.setSingleShot(true);
    m_dragEndTimer.setInterval(DragEndMs);
    connect(&m_dragEndTimer, &QTimer::timeout, this, &MiniLogoWindow::dragEnded);
}

void MiniLogoWindow::mousePressEvent(QMouseEvent *event)
{
    m_shouldSnap = true;
    if (event->button() == Qt::LeftButton) {
        m_pressed = true;
        m_dragging = false;
        m_pressPointer = event->globalPosition().toPoint();
        m_pressPosition = position();
    }
    QQuickView::mousePressEvent(event);
}

void MiniLogoWindow::mouseMoveEvent(QMouseEvent *event)
{
    if (m_pressed) {
        const QPoint delta = event->globalPosition().toPoint() - m_pressPointer;
        if (!m_dragging && delta.manhattanLength() >= QGuiApplication::styleHints()->startDragDistance())
            m_dragging = true;
        if (m_dragging)
            setPosition(m_pressPosition + delta);
    }
    QQuickView::mouseMoveEvent(event);
}

void MiniLogoWindow::mouseReleaseEvent(QMouseEvent *event)
{
    const bool wasClick = m_pressed && !m_dragging && event->button() == Qt::LeftButton;
    m_pressed = false;
    m_dragging = false;
    QQuickView::mouseReleaseEvent(event);
    if (wasClick)
        emit clicked();
}

void MiniLogoWindow::moveEvent(QMoveEvent *event)
{
    QQuickView::moveEvent(event);
    windowDidMove();
}

void MiniLogoWindow::windowDidMove()
{
    if (!m_shouldSnap)
        return;
    m_dragEndTimer.stop();
    constrainToScreenBounds();
    m_dragEndTimer.start();
}

void MiniLogoWindow::dragEnded()
{
    if (m_isUpdatingFrame)
        QTimer::singleShot(BusyRetryMs, this, &MiniLogoWindow::performSnapping);
    else
        performSnapping();
}

QRect MiniLogoWindow::visibleArea() const
{
    const QScreen *target = screen();
    return target ? target->availableGeometry() : QRect();
}

void MiniLogoWindow::constrainToScreenBounds()
{
    const QRect area = visibleArea();
    if (area.isEmpty())
        return;
    const QRect clamped = WindowGeometry::clampedToArea(geometry(), area);
    if (clamped == geometry())
        return;
    m_isUpdatingFrame = true;
    setPosition(clamped.topLeft());
    m_isUpdatingFrame = false;
}

void MiniLogoWindow::performSnapping()
{
    m_isUpdatingFrame = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            snapToBorderIfNeeded();
            m_isUpdatingFrame = false;
        },
        Qt::QueuedConnection);
}

void MiniLogoWindow::snapToBorderIfNeeded()
{
    const QRect area = visibleArea();
    if (area.isEmpty())
        return;
    const QRect snapped = WindowGeometry::snappedToNearestEdge(geometry(), area);
    if (snapped != geometry())
        setPosition(snapped.topLeft());
}
