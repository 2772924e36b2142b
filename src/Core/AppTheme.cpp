#include "AppTheme.h"

const QColor &AppTheme::orange()
{
    static const QColor colour = QColor::fromRgbF(235.0f / 255.0f, 98.0f / 255.0f, 26.0f / 255.0f, 1.0f);
    return colour;
}
