#include "GlassWindow.h"

#include "Core/WindowGeometry.h"
#include "Window/WindowSystem.h"

#include <QPainterPath>
#include <QQmlEngine>
#include <QQuickItem>
#include <QScreen>
#include <QSurfaceFormat>

void GlassWindow::makeFloating(QQuickView *view)
{
    view->setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    QSurfaceFormat surface = view->format();
    surface.setAlphaBufferSize(8);
    view->setFormat(surface);
    view->setColor(Qt::transparent);
}

GlassWindow::GlassWindow(QQmlEngine *engine, const QUrl &source, QVariantMap properties, QWindow *parent)
    : QQuickView(engine, parent)
{
    makeFloating(this);
    setResizeMode(QQuickView::SizeRootObjectToView);
    m_shadowMargin = WindowSystem::isCompositing(this) ? ShadowMargin : 0;
    properties.insert(QStringLiteral("shadowMargin"), m_shadowMargin);
    setInitialProperties(properties);
    setSource(source);
    resize(WindowGeometry::ChatWidth + 2 * m_shadowMargin, WindowGeometry::ChatHeight + 2 * m_shadowMargin);
}

QRect GlassWindow::contentFrame() const
{
    return geometry().adjusted(m_shadowMargin, m_shadowMargin, -m_shadowMargin, -m_shadowMargin);
}

void GlassWindow::setContentFrame(const QRect &frame)
{
    setGeometry(frame.adjusted(-m_shadowMargin, -m_shadowMargin, m_shadowMargin, m_shadowMargin));
}

void GlassWindow::center()
{
    const QScreen *target = screen();
    if (!target)
        return;
    setContentFrame(WindowGeometry::centredIn(contentFrame().size(), target->availableGeometry()));
}

void GlassWindow::useShadowMargin(int margin)
{
    if (margin == m_shadowMargin)
        return;
    const QRect glass = contentFrame();
    m_shadowMargin = margin;
    if (QQuickItem *root = rootObject())
        root->setProperty("shadowMargin", margin);
    setContentFrame(glass);
}

void GlassWindow::applyShape()
{
    QPainterPath glass;
    glass.addRoundedRect(
        QRectF(m_shadowMargin, m_shadowMargin, width() - 2 * m_shadowMargin, height() - 2 * m_shadowMargin),
        CornerRadius, CornerRadius);
    // With a compositor the shadow is drawn but lets clicks through; without one there is no margin and
    // the rounded corners are cut out of the window.
    WindowSystem::setShape(this, glass, m_shadowMargin == 0);
}

void GlassWindow::showEvent(QShowEvent *event)
{
    // A compositor may have come or gone while the window was hidden.
    useShadowMargin(WindowSystem::isCompositing(this) ? ShadowMargin : 0);
    WindowSystem::showOnAllWorkspaces(this);
    applyShape();
    m_shapeAfterMap = true;
    QQuickView::showEvent(event);
}

void GlassWindow::exposeEvent(QExposeEvent *event)
{
    // Once more when the window manager has taken the window on: some copy a shape to their frame
    // only when it changes.
    if (m_shapeAfterMap && isExposed()) {
        m_shapeAfterMap = false;
        applyShape();
    }
    QQuickView::exposeEvent(event);
}

void GlassWindow::resizeEvent(QResizeEvent *event)
{
    QQuickView::resizeEvent(event);
    if (isVisible())
        applyShape();
}
