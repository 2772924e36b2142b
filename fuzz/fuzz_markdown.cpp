// An answer's text through the Markdown renderer and into the bubble's document, as it streams in: the
// document built piece by piece must be the one built from the whole text at once.
#include "FuzzSupport.h"

#include "Markdown/MarkdownDocumentWriter.h"
#include "Markdown/MarkdownRenderer.h"

#include <QTextDocument>

#include <algorithm>
#include <cstdlib>

QUILLMOOR_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    // The first byte sets how long the streamed pieces are (at most 64 of them); the rest is the answer.
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    const qsizetype piece = std::max<qsizetype>(data[0] % 32 + 1, text.size() / 64 + 1);
    const MarkdownDocumentWriter::Style style{Markdown::systemFont(13, QFont::Normal, true),
                                              QColor(Qt::white), QColor(235, 98, 26),
                                              MarkdownDocumentWriter::bubbleParagraphStyle()};

    (void)parseMarkdown(text, style.font, style.textColor, style.accentColor, style.paragraphStyle);

    QTextDocument streamed;
    MarkdownDocumentWriter streaming;
    for (qsizetype end = piece; end < text.size(); end += piece)
        streaming.render(&streamed, text.left(end), style);
    streaming.render(&streamed, text, style);

    QTextDocument whole;
    MarkdownDocumentWriter once;
    once.renderFully(&whole, text, style);
    if (streamed.toHtml() != whole.toHtml())
        std::abort();
    return 0;
}
