#include "PdfEngine.h"

#include "PdfEngine/PdfEngineInterface.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLibrary>

namespace {

constexpr auto ModuleName = "libquillmoor-pdf.so";

// Loaded on first use and kept for the rest of the run (QLibrary does not unload when destroyed).
class LoadedEngine {
public:
    LoadedEngine()
    {
        QStringList tried;
        for (const QString &path : PdfEngine::candidates()) {
            if (!QFileInfo(path).isFile()) {
                tried.append(path);
                continue;
            }
            if (open(path))
                return;
        }
        if (m_error.isEmpty())
            m_error = QStringLiteral("no %1 in %2")
                          .arg(QLatin1String(ModuleName), tried.join(QStringLiteral(", ")));
    }

    QuillmoorPdfReadPages readPages = nullptr;
    const QString &error() const { return m_error; }

private:
    bool open(const QString &path)
    {
        QLibrary library(path);
        if (!library.load()) {
            m_error = library.errorString();
            return false;
        }
        const auto version =
            reinterpret_cast<QuillmoorPdfEngineVersion>(library.resolve("quillmoor_pdf_engine_version"));
        const auto read =
            reinterpret_cast<QuillmoorPdfReadPages>(library.resolve("quillmoor_pdf_read_pages"));
        if (!version || !read || version() != QUILLMOOR_PDF_ENGINE_VERSION) {
            m_error = QStringLiteral("%1 is not a PDF engine of version %2")
                          .arg(path, QString::number(QUILLMOOR_PDF_ENGINE_VERSION));
            library.unload();
            return false;
        }
        readPages = read;
        m_error.clear();
        return true;
    }

    QString m_error;
};

const LoadedEngine &engine()
{
    static const LoadedEngine loaded;
    return loaded;
}

void receivePage(void *context, const char16_t *text, std::size_t length)
{
    const auto &sink = *static_cast<const PdfEngine::PageSink *>(context);
    if (!text)
        sink(std::nullopt);
    else
        sink(QString::fromUtf16(text, qsizetype(length)));
}

} // namespace

QStringList PdfEngine::candidates()
{
    const QString chosen = qEnvironmentVariable("QUILLMOOR_PDF_ENGINE");
    if (!chosen.isEmpty())
        return {chosen};
    // The program's own folder, without needing an application object (the engine is used by tools too).
    const QString programDir =
        QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).absolutePath();
    const QString name = QLatin1String(ModuleName);
    QStringList paths{
        QDir(programDir).filePath(name),
        QDir::cleanPath(programDir + QStringLiteral("/" QUILLMOOR_PDF_ENGINE_INSTALL_DIR "/") + name)};
#ifdef QUILLMOOR_PDF_ENGINE_BUILD_DIR
    // Tests, benchmarks and fuzz targets of the build tree live in folders of their own.
    paths.append(QStringLiteral(QUILLMOOR_PDF_ENGINE_BUILD_DIR "/") + name);
#endif
    paths.removeDuplicates();
    return paths;
}

std::optional<int> PdfEngine::readPages(const QString &path, const PageSink &sink)
{
    const LoadedEngine &loaded = engine();
    if (!loaded.readPages)
        return std::nullopt;
    const int pages =
        loaded.readPages(QFile::encodeName(path).constData(), &receivePage, const_cast<PageSink *>(&sink));
    if (pages < 0)
        return std::nullopt;
    return pages;
}

QString PdfEngine::loadError()
{
    return engine().error();
}

QString PdfEngine::userMessage()
{
    return QStringLiteral(
               "PDF-Dateien können nicht gelesen werden: Das PDF-Modul von Quillmoor (%1) fehlt oder "
               "passt nicht zu dieser Version. Bitte installieren Sie Quillmoor neu.")
        .arg(QLatin1String(ModuleName));
}
