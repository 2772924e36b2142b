// The PDF engine module: Poppler behind the small C interface of PdfEngineInterface.h. Only the two
// functions of that interface are exported.
#include "PdfEngineInterface.h"

#include <poppler-document.h>
#include <poppler-global.h>
#include <poppler-page.h>

#include <memory>
#include <mutex>
#include <string>

#define QUILLMOOR_PDF_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// The engine reports every repair it makes on stderr; a damaged file is ordinary input here, and the
// one line that matters is the caller's.
void silenceEngine()
{
    static std::once_flag once;
    std::call_once(once,
                   [] { poppler::set_debug_error_function([](const std::string &, void *) {}, nullptr); });
}

} // namespace

QUILLMOOR_PDF_EXPORT int quillmoor_pdf_engine_version()
{
    return QUILLMOOR_PDF_ENGINE_VERSION;
}

QUILLMOOR_PDF_EXPORT int quillmoor_pdf_read_pages(const char *path, QuillmoorPdfPageSink sink, void *context)
{
    silenceEngine();
    // Nothing may leave a C function but its result.
    try {
        const std::unique_ptr<poppler::document> document(poppler::document::load_from_file(path));
        if (!document || document->is_locked())
            return -1;
        const int pageCount = document->pages();
        for (int i = 0; i < pageCount; ++i) {
            const std::unique_ptr<poppler::page> page(document->create_page(i));
            if (!page) {
                sink(context, nullptr, 0);
                continue;
            }
            // Reading order: column after column, each text block's lines in turn, hyphenated line ends
            // joined, as pdftotext prints it without -layout. The physical layout would interleave the lines
            // of side-by-side columns and pad them with blanks.
            const poppler::ustring text =
                page->text(poppler::rectf(), poppler::page::non_raw_non_physical_layout);
            sink(context, reinterpret_cast<const char16_t *>(text.data()), text.size());
        }
        return pageCount;
    } catch (...) {
        return -1;
    }
}
