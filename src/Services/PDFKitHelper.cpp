#include "PDFKitHelper.h"

#include "Core/Graphemes.h"
#include "Services/DebugLog.h"

#include <QFileInfo>

#include <poppler-qt6.h>

#include <memory>
#include <mutex>

namespace {

// The engine reports every repair it makes on stderr; a damaged file is ordinary input here, and the
// one line that matters is our own.
void silenceEngine()
{
    static std::once_flag once;
    std::call_once(
        once, [] { Poppler::setDebugErrorFunction([](const QString &, const QVariant &) {}, QVariant()); });
}

} // namespace

std::optional<QString> PDFKitHelper::extractText(const QString &path)
{
    silenceEngine();
    const QString fileName = QFileInfo(path).fileName();
    std::unique_ptr<Poppler::Document> document;
    if (!QFileInfo(path).isDir())
        document = Poppler::Document::load(path);
    if (!document || document->isLocked()) {
        DebugLog::log(QStringLiteral("❌ PDFKit: Could not open PDF at ") + fileName);
        return std::nullopt;
    }

    QString result;
    const int pageCount = document->numPages();
    for (int i = 0; i < pageCount; ++i) {
        const std::unique_ptr<Poppler::Page> page = document->page(i);
        if (!page)
            continue;
        const QString text = page->text(QRectF(), Poppler::Page::PhysicalLayout);
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
