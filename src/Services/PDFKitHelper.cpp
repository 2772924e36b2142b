#include "PDFKitHelper.h"

#include "Core/Graphemes.h"
#include "Services/DebugLog.h"

#include <QFile>
#include <QFileInfo>

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>

#include <memory>
#include <mutex>

namespace {

// The engine reports every repair it makes on stderr; a damaged file is ordinary input here, and the
// one line that matters is our own.
void silenceEngine()
{
    static std::once_flag once;
    std::call_once(once,
                   [] { poppler::set_debug_error_function([](const std::string &, void *) {}, nullptr); });
}

// The page's text in reading order: column after column, each text block's lines in turn, hyphenated line
// ends joined, as pdftotext prints it without -layout. The physical layout would interleave the lines of
// side-by-side columns and pad them with blanks.
QString pageText(const poppler::page &page)
{
    const poppler::ustring text = page.text(poppler::rectf(), poppler::page::non_raw_non_physical_layout);
    QString result =
        QString::fromUtf16(reinterpret_cast<const char16_t *>(text.data()), qsizetype(text.size()));
    // The engine ends every line, every text flow and the page itself with a break of its own (a form
    // feed for the page); like the platform's page text, ours ends with the last line's last character,
    // and pages are set apart by the empty line the caller adds.
    qsizetype end = result.size();
    while (end > 0 && (result.at(end - 1) == QLatin1Char('\n') || result.at(end - 1) == QLatin1Char('\f')))
        --end;
    result.truncate(end);
    return result;
}

} // namespace

std::optional<QString> PDFKitHelper::extractText(const QString &path)
{
    silenceEngine();
    const QString fileName = QFileInfo(path).fileName();
    std::unique_ptr<poppler::document> document;
    if (!QFileInfo(path).isDir())
        document.reset(poppler::document::load_from_file(QFile::encodeName(path).toStdString()));
    if (!document || document->is_locked()) {
        DebugLog::log(QStringLiteral("❌ PDFKit: Could not open PDF at ") + fileName);
        return std::nullopt;
    }

    QString result;
    const int pageCount = document->pages();
    for (int i = 0; i < pageCount; ++i) {
        const std::unique_ptr<poppler::page> page(document->create_page(i));
        if (!page)
            continue;
        const QString text = pageText(*page);
        if (text.trimmed().isEmpty())
            continue;
        result += text;
        result += QStringLiteral("\n\n");
    }

    DebugLog::log(QStringLiteral("📄 PDFKit: Extracted %1 chars from %2 pages of %3")
                      .arg(QString::number(Graphemes::count(result)), QString::number(pageCount), fileName));
    if (result.isEmpty())
        return std::nullopt;
    return result;
}
