#pragma once

#include "Markdown/AttributedText.h"

// The chat's small, line-oriented Markdown: headings (#, ##, ###), rules, bullet and numbered items and
// paragraphs, with bold-italic, bold, italic and inline code inside a line. Pure functions; the view turns
// the runs into a document.

// Block-level rendering of the whole text, line by line.
AttributedText parseMarkdown(const QString &text, const QFont &baseFont, const QColor &textColor,
                             const QColor &accentColor, const ParagraphStyle &paragraphStyle);

// Inline rendering of one line.
AttributedText applyInlineMarkdown(const QString &text, const QFont &baseFont, const QColor &textColor,
                                   const ParagraphStyle &paragraphStyle);

namespace Markdown {

// The runs of line `index` of a text, without the line feed that separates it from the next line.
// parseMarkdown is these joined by unattributed line feeds; incremental rendering reuses it.
AttributedText renderLine(const QString &line, qsizetype index, const QFont &baseFont,
                          const QColor &textColor, const QColor &accentColor,
                          const ParagraphStyle &paragraphStyle);

// Trims the Unicode space separators and tabs from both ends; line breaks stay.
QString trimmedSpaces(const QString &text);

// The fonts the renderer uses, made from the system's font families. Sizes follow the base font's unit:
// points, or pixels when the base font was given in pixels (as Qt Quick views do, where one point of the
// design is one logical pixel).
QFont systemFont(qreal size, QFont::Weight weight, bool pixels = false);
QFont monospacedSystemFont(qreal size, bool pixels = false);
QFont monospacedDigitSystemFont(qreal size, bool pixels = false);
// The size of a font in its own unit.
qreal fontSize(const QFont &font);
QFont italic(QFont font);

inline const QString HorizontalRule = QString(21, QChar(0x2500));
inline const QString BulletMarker = QStringLiteral("  \u2022  ");

} // namespace Markdown
