#include "MarkdownRenderer.h"

#include "Core/Graphemes.h"

#include <QFontDatabase>
#include <QRegularExpression>

namespace {

// PCRE2 stops a dot only at LF by default; (*ANY) makes every ICU line terminator (CR, LF, CRLF, VT, FF,
// NEL, LS, PS) end a dot and count as the final line break for `$`, and Unicode properties give \d and \s
// their ICU meaning.
QRegularExpression icuExpression(const QString &pattern)
{
    return QRegularExpression(QStringLiteral("(*ANY)") + pattern,
                              QRegularExpression::UseUnicodePropertiesOption);
}

const QRegularExpression &headingExpression()
{
    static const QRegularExpression expression = icuExpression(QStringLiteral("^(#{1,3})\\s+(.+)$"));
    return expression;
}

const QRegularExpression &ruleExpression()
{
    static const QRegularExpression expression = icuExpression(QStringLiteral("^-{3,}$|^\\*{3,}$"));
    return expression;
}

const QRegularExpression &numberedExpression()
{
    static const QRegularExpression expression = icuExpression(QStringLiteral("^\\d+\\.\\s+"));
    return expression;
}

const QRegularExpression &inlineExpression()
{
    static const QRegularExpression expression =
        icuExpression(QStringLiteral("(\\*\\*\\*(.+?)\\*\\*\\*|\\*\\*(.+?)\\*\\*|\\*(.+?)\\*|`(.+?)`)"));
    return expression;
}

void setSize(QFont &font, qreal size, bool pixels)
{
    if (pixels)
        font.setPixelSize(qMax(1, qRound(size)));
    else
        font.setPointSizeF(size);
}

bool isTrimmable(QChar c)
{
    return c == u'\t' || c.category() == QChar::Separator_Space;
}

QColor withAlpha(QColor color, qreal alpha)
{
    color.setAlphaF(float(alpha));
    return color;
}

void append(AttributedText &out, TextRun run)
{
    if (!run.text.isEmpty())
        out.append(std::move(run));
}

void appendAll(AttributedText &out, AttributedText runs)
{
    for (TextRun &run : runs)
        out.append(std::move(run));
}

// "- x" and "* x" count only when the first two user-perceived characters are exactly the marker, so a
// space carrying a combining mark does not start an item.
std::optional<QString> bulletContent(const QString &line)
{
    if (!(line.startsWith(QStringLiteral("- ")) || line.startsWith(QStringLiteral("* "))))
        return std::nullopt;
    const QString head = Graphemes::prefix(line, 2);
    if (head.size() != 2)
        return std::nullopt;
    return line.mid(2);
}

} // namespace

namespace Markdown {

QString trimmedSpaces(const QString &text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isTrimmable(text.at(begin)))
        ++begin;
    while (end > begin && isTrimmable(text.at(end - 1)))
        --end;
    return (begin == 0 && end == text.size()) ? text : text.mid(begin, end - begin);
}

qreal fontSize(const QFont &font)
{
    return font.pixelSize() > 0 ? qreal(font.pixelSize()) : font.pointSizeF();
}

QFont systemFont(qreal size, QFont::Weight weight, bool pixels)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    setSize(font, size, pixels);
    font.setWeight(weight);
    return font;
}

QFont monospacedSystemFont(qreal size, bool pixels)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setStyleHint(QFont::Monospace);
    font.setFixedPitch(true);
    setSize(font, size, pixels);
    font.setWeight(QFont::Normal);
    return font;
}

// Qt 6.4 cannot ask for tabular figures; the system sans fonts here already set digits on equal widths.
QFont monospacedDigitSystemFont(qreal size, bool pixels)
{
    return systemFont(size, QFont::DemiBold, pixels);
}

QFont italic(QFont font)
{
    font.setItalic(true);
    return font;
}

AttributedText renderLine(const QString &rawLine, qsizetype index, const QFont &baseFont,
                          const QColor &textColor, const QColor &accentColor,
                          const ParagraphStyle &paragraphStyle)
{
    const QString line = trimmedSpaces(rawLine);
    const qreal base = fontSize(baseFont);
    const bool pixels = baseFont.pixelSize() > 0;
    AttributedText out;

    if (const QRegularExpressionMatch m = headingExpression().match(line); m.hasMatch()) {
        const qsizetype level = m.capturedLength(1);
        static constexpr qreal Growth[] = {6, 3, 1};
        ParagraphStyle style = paragraphStyle;
        style.paragraphSpacingBefore = index == 0 ? 0 : 12;
        style.paragraphSpacing = 4;
        const QFont font =
            systemFont(base + Growth[level - 1], level == 3 ? QFont::DemiBold : QFont::Bold, pixels);
        append(out, {trimmedSpaces(line.mid(level)), font, textColor, std::nullopt, style});
        return out;
    }

    if (ruleExpression().match(line).hasMatch()) {
        ParagraphStyle style = paragraphStyle;
        style.paragraphSpacingBefore = 8;
        style.paragraphSpacing = 8;
        append(out, {HorizontalRule, systemFont(8, QFont::Normal, pixels), withAlpha(textColor, 0.3),
                     std::nullopt, style});
        return out;
    }

    if (const std::optional<QString> content = bulletContent(line)) {
        ParagraphStyle style = paragraphStyle;
        style.headIndent = 16;
        style.firstLineHeadIndent = 0;
        append(out, {BulletMarker, baseFont, accentColor, std::nullopt, style});
        appendAll(out, applyInlineMarkdown(*content, baseFont, textColor, style));
        return out;
    }

    if (numberedExpression().match(line).hasMatch()) {
        const qsizetype point = line.indexOf(u'.');
        ParagraphStyle style = paragraphStyle;
        style.headIndent = 20;
        style.firstLineHeadIndent = 0;
        const QString marker = QStringLiteral("  ") + line.left(point) + QStringLiteral(".  ");
        append(out, {marker, monospacedDigitSystemFont(base, pixels), accentColor, std::nullopt, style});
        appendAll(out, applyInlineMarkdown(trimmedSpaces(line.mid(point + 1)), baseFont, textColor, style));
        return out;
    }

    return applyInlineMarkdown(line, baseFont, textColor, paragraphStyle);
}

} // namespace Markdown

QString plainText(const AttributedText &text)
{
    QString out;
    for (const TextRun &run : text)
        out += run.text;
    return out;
}

AttributedText parseMarkdown(const QString &text, const QFont &baseFont, const QColor &textColor,
                             const QColor &accentColor, const ParagraphStyle &paragraphStyle)
{
    AttributedText out;
    qsizetype start = 0;
    for (qsizetype index = 0;; ++index) {
        const qsizetype feed = text.indexOf(u'\n', start);
        const QString line = text.mid(start, feed < 0 ? -1 : feed - start);
        appendAll(out, Markdown::renderLine(line, index, baseFont, textColor, accentColor, paragraphStyle));
        if (feed < 0)
            break;
        out.append(TextRun{QStringLiteral("\n"), {}, {}, {}, {}});
        start = feed + 1;
    }
    return out;
}

AttributedText applyInlineMarkdown(const QString &text, const QFont &baseFont, const QColor &textColor,
                                   const ParagraphStyle &paragraphStyle)
{
    const QRegularExpression &expression = inlineExpression();
    const auto plain = [&](const QString &piece) {
        return TextRun{piece, baseFont, textColor, std::nullopt, paragraphStyle};
    };
    AttributedText out;
    if (!expression.isValid()) {
        append(out, plain(text));
        return out;
    }

    const qreal base = Markdown::fontSize(baseFont);
    const bool pixels = baseFont.pixelSize() > 0;
    qsizetype previousEnd = 0;
    QRegularExpressionMatchIterator it = expression.globalMatch(text);
    while (it.hasNext()) {
        const QRegularExpressionMatch m = it.next();
        if (m.capturedStart() > previousEnd)
            append(out, plain(text.mid(previousEnd, m.capturedStart() - previousEnd)));
        if (m.capturedStart(2) >= 0) {
            append(out, {m.captured(2), Markdown::italic(Markdown::systemFont(base, QFont::Bold, pixels)),
                         textColor, std::nullopt, paragraphStyle});
        } else if (m.capturedStart(3) >= 0) {
            append(out, {m.captured(3), Markdown::systemFont(base, QFont::Bold, pixels), textColor,
                         std::nullopt, paragraphStyle});
        } else if (m.capturedStart(4) >= 0) {
            append(out, {m.captured(4), Markdown::italic(baseFont), textColor, std::nullopt, paragraphStyle});
        } else {
            append(out, {QLatin1Char(' ') + m.captured(5) + QLatin1Char(' '),
                         Markdown::monospacedSystemFont(base - 1, pixels), withAlpha(textColor, 0.85),
                         withAlpha(textColor, 0.08), paragraphStyle});
        }
        previousEnd = m.capturedEnd();
    }
    if (previousEnd < text.size())
        append(out, plain(text.mid(previousEnd)));
    return out;
}
