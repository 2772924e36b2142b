#include "ProcessingRun.h"

#include "Core/Graphemes.h"
#include "Services/Chunker.h"
#include "Services/ContextManager.h"
#include "Services/KnowledgePool.h"
#include "Services/TextExtraction.h"
#include "Services/VectorCache.h"

#include <qcoro/qcorofuture.h>

#include <algorithm>
#include <cmath>

namespace {

// Tells the knowledge base that the run ended, on every way out of it.
class RunGuard {
public:
    RunGuard(ContextManager *manager, const QUrl &url, void (ContextManager::*finished)(const QUrl &))
        : m_manager(manager)
        , m_url(url)
        , m_finished(finished)
    {
    }
    ~RunGuard()
    {
        if (m_manager)
            (m_manager.data()->*m_finished)(m_url);
    }
    RunGuard(const RunGuard &) = delete;
    RunGuard &operator=(const RunGuard &) = delete;

private:
    QPointer<ContextManager> m_manager;
    QUrl m_url;
    void (ContextManager::*m_finished)(const QUrl &);
};

QString extractAndReport(const QString &path, const QString &name)
{
    QString text = TextExtraction::forKnowledge(path).value_or(QString());
    if (!text.isEmpty()) {
        ContextManager::log(QStringLiteral("📄 Extracted %1 chars from %2")
                                .arg(QString::number(Graphemes::count(text)), name));
        ContextManager::log(QStringLiteral("📄 First 200 chars: ") + Graphemes::prefix(text, 200));
    }
    return text;
}

// Everything the store step needs that takes time: the chunks paired with their vectors, each vector's
// norm (retrieval divides by it) and each chunk's source-map key.
ContextManager::ChunkBatch prepare(const QStringList &chunks, const QList<QList<double>> &vectors)
{
    ContextManager::ChunkBatch batch;
    batch.created = chunks.size();
    const qsizetype count = std::min(chunks.size(), vectors.size());
    batch.chunks.reserve(count);
    batch.norms.reserve(count);
    for (qsizetype i = 0; i < count; ++i) {
        double sum = 0.0;
        for (double x : vectors[i])
            sum += x * x;
        batch.chunks.append(DocumentChunk{chunks[i], vectors[i]});
        batch.norms.append(std::sqrt(sum));
    }
    batch.sourceKeys.reserve(chunks.size());
    for (const QString &chunk : chunks)
        batch.sourceKeys.append(Graphemes::prefix(chunk, 100));
    return batch;
}

} // namespace

QCoro::Task<> ProcessingRun::run(QPointer<ContextManager> manager, QUrl url)
{
    RunGuard guard(manager, url, &ContextManager::runFinished);
    const std::shared_ptr<const InfomaniakAPI> api = manager->apiPtr();
    const QString name = url.fileName();
    const QString path = url.toLocalFile();

    // Named futures: g++ 12 destroys temporaries inside a co_await expression twice.
    QFuture<QString> extraction = KnowledgePool::run(extractAndReport, path, name);
    const QString text = co_await extraction;
    if (!manager)
        co_return;
    if (text.isEmpty()) {
        manager->unmarkProcessing(url);
        ContextManager::log(QStringLiteral("⚠️ No text extracted from ") + name);
        co_return;
    }
    manager->storeText(url, text);

    QFuture<Chunker::ChunkPlan> chunking = KnowledgePool::run(Chunker::plan, name, text);
    const Chunker::ChunkPlan plan = co_await chunking;
    if (!manager)
        co_return;
    const QStringList &chunks = plan.chunks;
    if (chunks.isEmpty()) {
        manager->unmarkProcessing(url);
        ContextManager::log(QStringLiteral("⚠️ No chunks created from ") + name);
        co_return;
    }
    manager->storeSchema(url, plan.description);
    ContextManager::log(
        QStringLiteral("📦 Created %1 chunks from %2").arg(QString::number(chunks.size()), name));

    // Vectors of chunks whose text and model are unchanged come from the cache, read on its own thread. A
    // batch goes to the server only when one of its chunks is unknown, and then whole, as it always went.
    const QString model = api->embeddingModel();
    const std::shared_ptr<VectorCache> cache = manager->vectorCache();
    QFuture<QList<VectorCache::Entry>> lookingUp = cache->lookup(model, chunks);
    const QList<VectorCache::Entry> known = co_await lookingUp;
    if (!manager)
        co_return;

    const qsizetype n = chunks.size();
    const qsizetype total = (n + BatchSize - 1) / BatchSize;
    const auto allKnown = [&known](qsizetype start, qsizetype count) {
        return std::all_of(known.cbegin() + start, known.cbegin() + start + count,
                           [](const VectorCache::Entry &entry) { return entry.has_value(); });
    };
    qsizetype fromCache = 0;
    for (qsizetype start = 0; start < n; start += BatchSize) {
        const qsizetype count = std::min<qsizetype>(BatchSize, n - start);
        if (allKnown(start, count))
            fromCache += count;
    }
    ContextManager::log(QStringLiteral("💾 ") + QString::number(fromCache) + QStringLiteral(" of ") +
                        QString::number(n) + QStringLiteral(" vectors from the cache for ") + name);

    QList<QList<double>> embeddings;
    embeddings.reserve(n);
    for (qsizetype start = 0; start < n; start += BatchSize) {
        ContextManager::log(QStringLiteral("🔢 Embedding batch ") + QString::number(start / BatchSize + 1) +
                            QLatin1Char('/') + QString::number(total) + QStringLiteral("..."));
        const QStringList batch = chunks.mid(start, BatchSize);
        if (allKnown(start, batch.size())) {
            for (qsizetype i = start; i < start + batch.size(); ++i)
                embeddings.append(*known[i]);
            continue;
        }
        const QString mode = QStringLiteral("index");
        const EmbeddingsResult result = co_await api->createEmbeddings(batch, model, mode);
        if (!manager)
            co_return;
        if (!result.ok()) {
            ContextManager::log(QStringLiteral("❌ Error processing ") + name + QStringLiteral(": ") +
                                result.error->description);
            manager->unmarkProcessing(url);
            co_return;
        }
        // Only a full answer says which vector belongs to which text.
        if (result.vectors.size() == batch.size())
            cache->store(model, batch, result.vectors);
        embeddings.append(result.vectors);
    }

    QFuture<ContextManager::ChunkBatch> preparing = KnowledgePool::run(prepare, chunks, embeddings);
    ContextManager::ChunkBatch batch = co_await preparing;
    if (!manager)
        co_return;
    manager->storeChunks(url, std::move(batch));
}
