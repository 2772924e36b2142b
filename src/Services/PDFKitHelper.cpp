#include "PDFKitHelper.h"

#include "Core/Graphemes.h"
#include "Services/DebugLog.h"
#include "Services/PdfEngine.h"

#include <QFileInfo>

#include <cstdio>
#include <mutex>

namespace {

// The engine ends every line, every text flow and the page itself with a break of its own (a form feed for
// the page); like the platform's page text, ours ends with the last line's last character, and pages are set
// apart by the empty line the caller adds.
void dropTrailingBreaks(QString &text)
{
    qsizetype end = text.size();
    while (end > 0 && (text.at(end - 1) == QLatin1Char('\n') || text.at(end - 1) == QLatin1Char('\f')))
        --end;
    text.truncate(end);
}

// A missing engine is a broken installation, not a broken file: the user hears it once, in German, and the
// log says why for every file it costs.
void reportMissingEngine(const QString &fileName)
{
    static std::once_flag once;
    std::call_once(once, [] {
        std::fprintf(stderr, "%s\n", PdfEngine::userMessage().toLocal8Bit().constData());
        std::fflush(stderr);
    });
    DebugLog::log(QStringLiteral("❌ PDFKit: PDF engine not available for %1: %2")
                      .arg(fileName, PdfEngine::loadError()));
}

} // namespace

std::optional<QString> PDFKitHelper::extractText(const QString &path)
{
    const QString fileName = QFileInfo(path).fileName();
    QString result;
    std::optional<int> pageCount;
    if (!QFileInfo(path).isDir()) {
        pageCount = PdfEngine::readPages(path, [&result](std::optional<QString> page) {
            if (!page)
                return;
            dropTrailingBreaks(*page);
            if (page->trimmed().isEmpty())
                return;
            result += *page;
            result += QStringLiteral("\n\n");
        });
    }
    if (!pageCount) {
        if (!PdfEngine::loadError().isEmpty())
            reportMissingEngine(fileName);
        DebugLog::log(QStringLiteral("❌ PDFKit: Could not open PDF at ") + fileName);
        return std::nullopt;
    }

    DebugLog::log(QStringLiteral("📄 PDFKit: Extracted %1 chars from %2 pages of %3")
                      .arg(QString::number(Graphemes::count(result)), QString::number(*pageCount), fileName));
    if (result.isEmpty())
        return std::nullopt;
    return result;
}
