#pragma once

#include <QColor>

namespace AppTheme {

// The application's signature colour, sRGB 235/98/26.
const QColor &orange();

} // namespace AppTheme
