// The stored knowledge list and the bookmarks in it: decoded as start-up decodes them, each bookmark
// resolved, and the list written back; also the input as one bookmark of its own.
#include "FuzzSupport.h"

#include "Services/KnowledgeBookmarks.h"

#include <cstdlib>

QUILLMOOR_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray stored = Fuzz::bytes(data, size);
    const QList<QByteArray> bookmarks = KnowledgeBookmarks::decodeList(stored);
    for (const QByteArray &bookmark : bookmarks)
        (void)KnowledgeBookmarks::resolve(bookmark);
    // What is written back reads back the same.
    if (KnowledgeBookmarks::decodeList(KnowledgeBookmarks::encodeList(bookmarks)) != bookmarks)
        std::abort();
    (void)KnowledgeBookmarks::resolve(stored);
    return 0;
}
