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

// The fonts the renderer uses, made from the system's font families.
QFont systemFont(qreal pointSize, QFont::Weight weight);
QFont monospacedSystemFont(qreal pointSize);
QFont monospacedDigitSystemFont(qreal pointSize);
QFont italic(QFont font);

inline const QString HorizontalRule = QString(21, QChar(0x2500));
inline const QString BulletMarker = QStringLiteral("  \u2022  ");

} // namespace Markdown
