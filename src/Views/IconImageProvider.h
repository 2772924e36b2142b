#pragma once

#include <QQuickImageProvider>

// Serves "image://icon/<name>/<colour>": one of our single-colour SVG symbols drawn as a template, that is
// every painted pixel takes the colour (any QColor name, "#" written as "%23" or left as is) and keeps
// its coverage as alpha.
class IconImageProvider : public QQuickImageProvider {
public:
    static inline const QString Name = QStringLiteral("icon");

    IconImageProvider();

    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;

    // Draws the symbol `name` in `color` at `size` device pixels; a null image for an unknown symbol.
    static QImage render(const QString &name, const QColor &color, const QSize &size);
};
