// The body of an embeddings answer through the decoder: a list of vectors or a decoding error, never more.
#include "FuzzSupport.h"

#include "Services/EmbeddingResponse.h"

QUILLMOOR_FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto decoded = EmbeddingResponse::decode(Fuzz::bytes(data, size));
    if (const auto *vectors = std::get_if<QList<QList<double>>>(&decoded)) {
        qsizetype count = 0;
        for (const QList<double> &vector : *vectors)
            count += vector.size();
        (void)count;
    }
    return 0;
}
