// A knowledge file's text through the chunkers, as a processing run cuts it: the row cutter for tables
// (csv, xlsx) and the paragraph cutter for everything else.
#include "FuzzSupport.h"

#include "Services/Chunker.h"

QUILLMOOR_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    static const QStringList names{QStringLiteral("Tabelle.csv"), QStringLiteral("Mappe.xlsx"),
                                   QStringLiteral("Notizen.txt"), QStringLiteral("ohne Endung")};
    const QString &name = names[data[0] % names.size()];
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));
    const Chunker::ChunkPlan plan = Chunker::plan(name, text);
    (void)Chunker::simpleChunkText(text, 20, 5);
    (void)plan;
    return 0;
}
