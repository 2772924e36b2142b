// A knowledge file of any other type through the text extraction dispatcher: strict UTF-8, the whole text,
// and the attachment path with its cut at 30,000 characters.
#include "FuzzSupport.h"

#include "Services/TextExtraction.h"

QUILLMOOR_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Fuzz::ScratchFile file(QStringLiteral("Notizen.txt"));
    const QString &path = file.write(data, size);
    (void)TextExtraction::forKnowledge(path);
    (void)TextExtraction::forAttachment(path);
    return 0;
}
