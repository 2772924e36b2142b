#pragma once

#include <QColor>
#include <QFont>
#include <QList>
#include <QString>

#include <optional>

// How a paragraph is set: the extra space between its lines, the space after and before it, and the left
// indents of its wrapped lines and of its first line (all in points).
struct ParagraphStyle {
    qreal lineSpacing = 0;
    qreal paragraphSpacing = 0;
    qreal paragraphSpacingBefore = 0;
    qreal headIndent = 0;
    qreal firstLineHeadIndent = 0;

    bool operator==(const ParagraphStyle &other) const = default;
};

// A piece of text with its attributes. An attribute left empty is not set at all (the line feeds between
// rendered lines carry none), which is different from being set to a default value.
struct TextRun {
    QString text;
    std::optional<QFont> font;
    std::optional<QColor> foreground;
    std::optional<QColor> background;
    std::optional<ParagraphStyle> paragraphStyle;

    bool operator==(const TextRun &other) const = default;
};

// Rich text as a sequence of runs; empty runs are never stored, so equal texts compare equal.
using AttributedText = QList<TextRun>;

// The plain text of all runs, for tests and measurements.
QString plainText(const AttributedText &text);
