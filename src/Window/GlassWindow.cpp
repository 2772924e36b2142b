#include "GlassWindow.h"

#include "Core/WindowGeometry.h"

#include <QQmlEngine>
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
    properties.insert(QStringLiteral("shadowMargin"), ShadowMargin);
    setInitialProperties(properties);
    setSource(source);
    resize(WindowGeometry::ChatWidth + 2 * ShadowMargin, WindowGeometry::ChatHeight + 2 * ShadowMargin);
}

QRect GlassWindow::contentFrame() const
{
    return geometry().adjusted(ShadowMargin, ShadowMargin, -ShadowMargin, -ShadowMargin);
}

void GlassWindow::setContentFrame(const QRect &frame)
{
    setGeometry(frame.adjusted(-ShadowMargin, -ShadowMargin, ShadowMargin, ShadowMargin));
}

void GlassWindow::center()
{
    const QScreen *target = screen();
    if (!target)
        return;
    setContentFrame(WindowGeometry::centredIn(contentFrame().size(), target->availableGeometry()));
}
