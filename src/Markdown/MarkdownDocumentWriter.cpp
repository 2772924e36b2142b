#include "MarkdownDocumentWriter.h"

#include "Markdown/MarkdownRenderer.h"

#include <QAbstractTextDocumentLayout>
#include <QTextBlock>
#include <QTextCursor>

#include <cmath>

QTextCharFormat MarkdownDocumentWriter::charFormat(const TextRun &run)
{
    QTextCharFormat format;
    if (run.font)
        format.setFont(*run.font, QTextCharFormat::FontPropertiesAll);
    if (run.foreground)
        format.setForeground(*run.foreground);
    if (run.background)
        format.setBackground(*run.background);
    return format;
}

// Paragraph spacing after one paragraph and before the next add up (they do not collapse into the larger
// one), so the sum goes above the block and nothing below it.
QTextBlockFormat MarkdownDocumentWriter::blockFormat(const ParagraphStyle &style,
                                                     const ParagraphStyle &previous)
{
    QTextBlockFormat format;
    format.setLineHeight(style.lineSpacing, QTextBlockFormat::LineDistanceHeight);
    format.setTopMargin(style.paragraphSpacingBefore + previous.paragraphSpacing);
    format.setBottomMargin(0);
    format.setLeftMargin(style.headIndent);
    format.setTextIndent(style.firstLineHeadIndent - style.headIndent);
    return format;
}

void MarkdownDocumentWriter::render(QTextDocument *document, const QString &text, const Style &style)
{
    if (!document)
        return;
    const bool grows = m_valid && document == m_document && style == m_style && text.startsWith(m_text) &&
                       document->blockCount() == m_lastLineIndex + 1;
    if (!grows) {
        renderFully(document, text, style);
        return;
    }
    if (text.size() == m_text.size())
        return;
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    cursor.setPosition(document->findBlockByNumber(int(m_lastLineIndex)).position());
    cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
    m_text = text;
    m_blockStyles.resize(m_lastLineIndex);
    writeLines(cursor, text, m_lastLineStart, m_lastLineIndex);
    cursor.endEditBlock();
}

void MarkdownDocumentWriter::renderFully(QTextDocument *document, const QString &text, const Style &style)
{
    if (!document)
        return;
    m_document = document;
    m_style = style;
    m_text = text;
    m_valid = true;
    m_blockStyles.clear();
    document->setUndoRedoEnabled(false);
    document->clear();
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    writeLines(cursor, text, 0, 0);
    cursor.endEditBlock();
}

void MarkdownDocumentWriter::writeLines(QTextCursor &cursor, const QString &text, qsizetype lineStart,
                                        qsizetype lineIndex)
{
    bool first = true;
    for (;;) {
        const qsizetype feed = text.indexOf(u'\n', lineStart);
        const QString line = text.mid(lineStart, feed < 0 ? -1 : feed - lineStart);
        const AttributedText runs = Markdown::renderLine(line, lineIndex, m_style.font, m_style.textColor,
                                                         m_style.accentColor, m_style.paragraphStyle);
        // A paragraph takes its style from its first character; an empty line has only its unattributed
        // line feed, so it gets the default style.
        const ParagraphStyle style =
            runs.isEmpty() ? ParagraphStyle{} : runs.first().paragraphStyle.value_or(ParagraphStyle{});
        const ParagraphStyle previous = m_blockStyles.isEmpty() ? ParagraphStyle{} : m_blockStyles.last();
        const QTextBlockFormat format = blockFormat(style, previous);
        // The first line written goes into the empty block left by clearing or by removing the old last line.
        if (first)
            cursor.setBlockFormat(format);
        else
            cursor.insertBlock(format, QTextCharFormat());
        first = false;
        m_blockStyles.append(style);
        for (const TextRun &run : runs)
            cursor.insertText(run.text, charFormat(run));
        m_lastLineStart = lineStart;
        m_lastLineIndex = lineIndex;
        if (feed < 0)
            break;
        lineStart = feed + 1;
        ++lineIndex;
    }
}

int MarkdownDocumentWriter::measuredHeight(QTextDocument *document)
{
    if (!document || !document->documentLayout())
        return 0;
    return int(std::ceil(document->documentLayout()->documentSize().height()));
}
