// A PDF knowledge file through the PDF engine module, as a processing run and an attachment read it: the
// module is opened on the first input, as in the app.
#include "FuzzSupport.h"

#include "Services/TextExtraction.h"

QUILLMOOR_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Fuzz::ScratchFile file(QStringLiteral("Bericht.pdf"));
    const QString &path = file.write(data, size);
    (void)TextExtraction::forKnowledge(path);
    return 0;
}
