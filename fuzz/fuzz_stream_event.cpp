// One line of the answer stream through the simdjson event reader, held to Qt's JSON parser: both must
// make the same decision (nothing, a piece with the same text, or the end) on every line.
#include "FuzzSupport.h"

#include "Services/StreamEvent.h"

#include <cstdlib>

QUILLMOOR_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray line = Fuzz::bytes(data, size);
    const StreamEvent fast = StreamEvent::parse(line);
    const StreamEvent reference = StreamEvent::parseWithDocument(line);
    if (fast.kind != reference.kind || fast.content != reference.content) {
        std::fprintf(stderr, "disagreement: fast %d \"%s\", reference %d \"%s\"\n", int(fast.kind),
                     qPrintable(fast.content), int(reference.kind), qPrintable(reference.content));
        std::abort();
    }
    return 0;
}
