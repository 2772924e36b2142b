#include "MiniLogoWindow.h"

#include "AppSettings.h"
#include "Core/WindowGeometry.h"
#include "DesktopStyle.h"
#include "Window/GlassWindow.h"
#include "Window/HelpTipWindow.h"
#include "Window/WindowSystem.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainterPath>
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

    m_helpTimer.setSingleShot(true);
    m_helpTimer.setInterval(DesktopStyle::ToolTipDelayMs);
    connect(&m_helpTimer, &QTimer::timeout, this, &MiniLogoWindow::showHelp);
}

MiniLogoWindow::~MiniLogoWindow() = default;

bool MiniLogoWindow::event(QEvent *event)
{
    if (event->type() == QEvent::Enter)
        m_helpTimer.start();
    else if (event->type() == QEvent::Leave)
        hideHelp();
    return QQuickView::event(event);
}

void MiniLogoWindow::applyShape()
{
    // Only the disc takes the mouse; its corners let clicks through. Without a compositor to blend its
    // shadow the corners are cut out as well.
    QPainterPath disc;
    const qreal inset = (WindowGeometry::LogoSize - LogoDiameter) / 2;
    disc.addEllipse(QRectF(inset, inset, LogoDiameter, LogoDiameter));
    WindowSystem::setShape(this, disc, !WindowSystem::isCompositing(this));
}

void MiniLogoWindow::showEvent(QShowEvent *event)
{
    applyShape();
    m_shapeAfterMap = true;
    WindowSystem::showOnAllWorkspaces(this);
    QQuickView::showEvent(event);
}

void MiniLogoWindow::exposeEvent(QExposeEvent *event)
{
    // Once more when the window manager has taken the window on: some copy a shape to their frame
    // only when it changes.
    if (m_shapeAfterMap && isExposed()) {
        m_shapeAfterMap = false;
        applyShape();
    }
    QQuickView::exposeEvent(event);
}

void MiniLogoWindow::hideEvent(QHideEvent *event)
{
    hideHelp();
    QQuickView::hideEvent(event);
}

void MiniLogoWindow::showHelp()
{
    if (!isVisible() || m_pressed)
        return;
    if (!m_helpTip)
        m_helpTip = std::make_unique<HelpTipWindow>(engine());
    m_helpTip->setScreen(screen());
    m_helpTip->showBeside(geometry(), HelpText);
}

void MiniLogoWindow::hideHelp()
{
    m_helpTimer.stop();
    if (m_helpTip)
        m_helpTip->hide();
}

void MiniLogoWindow::mousePressEvent(QMouseEvent *event)
{
    hideHelp();
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
