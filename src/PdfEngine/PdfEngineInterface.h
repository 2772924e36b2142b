#pragma once

// What the PDF engine module offers: a plain C interface, so the module needs nothing of Qt and the program
// that opens it needs nothing of the PDF library. The module is opened on the first PDF read; a program
// that never reads a PDF never maps the PDF library and its chain of image and font libraries.

#include <cstddef>

extern "C" {

// Raised whenever the meaning of the functions below changes; a module of another version is not used.
#define QUILLMOOR_PDF_ENGINE_VERSION 1

// Receives the text of one page (UTF-16, not terminated); `text` is null for a page the engine could not
// make.
typedef void (*QuillmoorPdfPageSink)(void *context, const char16_t *text, std::size_t length);

// int quillmoor_pdf_engine_version(void);
typedef int (*QuillmoorPdfEngineVersion)();
// Reads the document at `path` (a local path in the file system's encoding) and hands over each page's text
// in reading order, pages in order. Returns the page count, or -1 when the document cannot be opened, is
// locked by a user password or makes the engine fail.
// int quillmoor_pdf_read_pages(const char *path, QuillmoorPdfPageSink sink, void *context);
typedef int (*QuillmoorPdfReadPages)(const char *path, QuillmoorPdfPageSink sink, void *context);
}
