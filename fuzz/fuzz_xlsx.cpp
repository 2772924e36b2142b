// A workbook file through the workbook reader's public entry, as the knowledge base reads one.
#include "FuzzSupport.h"

#include "Services/XLSXHelper.h"

QUILLMOOR_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static Fuzz::ScratchFile file(QStringLiteral("Mappe.xlsx"));
    (void)XLSXHelper::extractText(file.write(data, size));
    return 0;
}
