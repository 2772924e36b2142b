#pragma once

#include "Markdown/AttributedText.h"

#include <QPointer>
#include <QTextDocument>
#include <QTextFormat>

class QTextCursor;

// Puts rendered Markdown into a QTextDocument, one block per source line. While an answer streams in, the
// text only grows, and every line but the last is final, so only the last line is rendered again and
// replaced; anything else renders the whole text. Both paths leave the same document.
class MarkdownDocumentWriter {
public:
    struct Style {
        QFont font;
        QColor textColor;
        QColor accentColor;
        ParagraphStyle paragraphStyle;
        bool operator==(const Style &other) const = default;
    };

    // Paragraph style of the chat bubbles: 4 points between lines, 8 after each paragraph.
    static ParagraphStyle bubbleParagraphStyle() { return {4, 8, 0, 0, 0}; }

    void render(QTextDocument *document, const QString &text, const Style &style);
    // Always from scratch (what the incremental path must equal).
    void renderFully(QTextDocument *document, const QString &text, const Style &style);

    // The laid-out height at the document's current text width, rounded up to whole points.
    static int measuredHeight(QTextDocument *document);

    // How a run and a paragraph style look in a QTextDocument.
    static QTextCharFormat charFormat(const TextRun &run);
    static QTextBlockFormat blockFormat(const ParagraphStyle &style, const ParagraphStyle &previous);

private:
    void writeLines(QTextCursor &cursor, const QString &text, qsizetype lineStart, qsizetype lineIndex);

    QPointer<QTextDocument> m_document;
    QString m_text;
    Style m_style;
    bool m_valid = false;
    qsizetype m_lastLineStart = 0;
    qsizetype m_lastLineIndex = 0;
    QList<ParagraphStyle> m_blockStyles;
};
