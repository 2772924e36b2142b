#include "ProcessingRun.h"

#include "Core/Graphemes.h"
#include "Services/Chunker.h"
#include "Services/ContextManager.h"
#include "Services/TextExtraction.h"

#include <QtConcurrent/QtConcurrentRun>

#include <qcoro/qcorofuture.h>

namespace {

// Keeps the knowledge base's count of active runs right on every way out of a run.
class RunGuard {
public:
    explicit RunGuard(ContextManager *manager, void (ContextManager::*finished)())
        : m_manager(manager)
        , m_finished(finished)
    {
    }
    ~RunGuard()
    {
        if (m_manager)
            (m_manager.data()->*m_finished)();
    }
    RunGuard(const RunGuard &) = delete;
    RunGuard &operator=(const RunGuard &) = delete;

private:
    QPointer<ContextManager> m_manager;
    void (ContextManager::*m_finished)();
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

} // namespace

QCoro::Task<> ProcessingRun::run(QPointer<ContextManager> manager, QUrl url)
{
    RunGuard guard(manager, &ContextManager::runFinished);
    const std::shared_ptr<const InfomaniakAPI> api = manager->apiPtr();
    const QString name = url.fileName();
    const QString path = url.toLocalFile();

    const QString text = co_await QtConcurrent::run(extractAndReport, path, name);
    if (!manager)
        co_return;
    if (text.isEmpty()) {
        manager->unmarkProcessing(url);
        ContextManager::log(QStringLiteral("⚠️ No text extracted from ") + name);
        co_return;
    }
    manager->storeText(url, text);

    const Chunker::ChunkPlan plan = co_await QtConcurrent::run(Chunker::plan, name, text);
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

    const qsizetype n = chunks.size();
    const qsizetype total = (n + BatchSize - 1) / BatchSize;
    QList<QList<double>> embeddings;
    embeddings.reserve(n);
    for (qsizetype start = 0; start < n; start += BatchSize) {
        ContextManager::log(
            QStringLiteral("🔢 Embedding batch %1/%2...").arg(start / BatchSize + 1).arg(total));
        const EmbeddingsResult result = co_await api->createEmbeddings(
            chunks.mid(start, BatchSize), EmbeddingModel, QStringLiteral("index"));
        if (!manager)
            co_return;
        if (!result.ok()) {
            ContextManager::log(QStringLiteral("❌ Error processing ") + name + QStringLiteral(": ") +
                                result.error->description);
            manager->unmarkProcessing(url);
            co_return;
        }
        embeddings.append(result.vectors);
    }

    manager->storeChunks(url, chunks, embeddings);
}
