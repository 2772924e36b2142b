#include "IconImageProvider.h"

#include <QPainter>
#include <QSvgRenderer>
#include <QUrl>

IconImageProvider::IconImageProvider()
    : QQuickImageProvider(QQuickImageProvider::Image)
{
}

QImage IconImageProvider::render(const QString &name, const QColor &color, const QSize &size)
{
    QSvgRenderer svg(QStringLiteral(":/qt/qml/Quillmoor/icons/%1.svg").arg(name));
    if (!svg.isValid() || size.isEmpty())
        return {};
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    svg.render(&painter);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), color);
    return image;
}

QImage IconImageProvider::requestImage(const QString &id, QSize *size, const QSize &requestedSize)
{
    const QString decoded = QUrl::fromPercentEncoding(id.toUtf8());
    const qsizetype slash = decoded.indexOf(u'/');
    const QString name = slash < 0 ? decoded : decoded.left(slash);
    const QColor color = slash < 0 ? QColor(Qt::black) : QColor(decoded.mid(slash + 1));
    const QSize target = requestedSize.isValid() && !requestedSize.isEmpty() ? requestedSize : QSize(64, 64);
    QImage image = render(name, color.isValid() ? color : QColor(Qt::black), target);
    if (size)
        *size = image.size();
    return image;
}
