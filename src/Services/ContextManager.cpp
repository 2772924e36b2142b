#include "ContextManager.h"

#include <QSet>

#include "Services/DebugLog.h"
#include "Services/FileMonitor.h"
#include "Services/ProcessingRun.h"
#include "Services/VectorCache.h"

#include <QMutexLocker>

#include <qcoro/qcorotimer.h>

#include <chrono>

#include <algorithm>
#include <atomic>

namespace {

std::atomic<ContextManager *> g_shared{nullptr};

} // namespace

ContextManager::ContextManager(std::shared_ptr<const InfomaniakAPI> api, QObject *parent)
    : QObject(parent)
    , m_api(std::move(api))
    , m_vectorCache(std::make_shared<VectorCache>())
    , m_monitor(new FileMonitor(this))
    , m_snapshot(std::make_shared<KnowledgeSnapshot>())
{
    connect(m_monitor, &FileMonitor::settled, this, &ContextManager::onFileEventSettled);
    g_shared.store(this);
    DebugLog::start();
    log(QStringLiteral("ContextManager initialized"));
}

ContextManager::~ContextManager()
{
    ContextManager *self = this;
    g_shared.compare_exchange_strong(self, nullptr);
}

ContextManager *ContextManager::shared()
{
    return g_shared.load();
}

void ContextManager::log(const QString &message)
{
    DebugLog::log(message);
}

int ContextManager::monitorCount() const
{
    return m_monitor->count();
}

void ContextManager::addFile(const QUrl &url)
{
    const QString path = url.path();
    for (const QUrl &known : std::as_const(m_trackedFiles)) {
        if (known.path() == path)
            return;
    }
    log(QStringLiteral("➕ addFile: ") + url.fileName() + QStringLiteral(" (path: ") + path +
        QStringLiteral(")"));
    m_trackedFiles.append(url);
    publish();
    emit trackedFilesChanged();
    startMonitoring(url);
    processFile(url);
}

void ContextManager::removeFile(const QUrl &url)
{
    const QString path = url.path();
    log(QStringLiteral("➖ removeFile: ") + url.fileName() + QStringLiteral(" (path: ") + path +
        QStringLiteral(")"));
    QUrl key = url;
    for (const QUrl &known : std::as_const(m_trackedFiles)) {
        if (known.path() == path) {
            key = known;
            break;
        }
    }
    const qsizetype removed =
        m_trackedFiles.removeIf([&path](const QUrl &known) { return known.path() == path; });
    m_fileSchemas.remove(key);
    m_fileTexts.remove(key);
    m_fileChunks.remove(key);
    m_fileNorms.remove(key);
    m_chunkSourceMap.removeIf(
        [&path](const QHash<QString, QUrl>::iterator it) { return it.value().path() == path; });
    m_rerunFiles.removeIf([&path](const QUrl &known) { return known.path() == path; });
    stopMonitoring(key);
    updateGlobalChunks();
    publish();
    if (removed > 0)
        emit trackedFilesChanged();
    log(QStringLiteral("   → Remaining: %1 files, %2 chunks")
            .arg(m_trackedFiles.size())
            .arg(m_globalChunks.size()));
}

void ContextManager::processFile(const QUrl &url)
{
    if (m_processingFiles.contains(url)) {
        log(QStringLiteral("⏸️ processFile skipped (already processing): ") + url.fileName());
        // The running run may have read the file before the change that asked for this one: the file is
        // processed once more when it ends, so the knowledge always ends at the last saved version.
        m_rerunFiles.insert(url);
        return;
    }
    // The mark lands after the caller's code has returned, so two calls in one go both start a run. The run
    // starts behind the mark: a file that is read at once could otherwise be unmarked before it was marked.
    runStarted();
    QMetaObject::invokeMethod(
        this,
        [this, url] {
            markProcessing(url);
            ProcessingRun::run(this, url);
        },
        Qt::QueuedConnection);
    log(QStringLiteral("🔄 processFile starting: ") + url.fileName());
}

QString ContextManager::getKnowledgeOverview() const
{
    if (m_trackedFiles.isEmpty())
        return {};
    // The overview is rebuilt after every change; with a thousand files a list search per row adds up.
    const QSet<QUrl> processing(m_processingFiles.cbegin(), m_processingFiles.cend());
    QString overview = QStringLiteral("Verfügbare Wissensdateien:\n");
    for (const QUrl &url : m_trackedFiles) {
        overview += QStringLiteral("- ") + url.fileName();
        if (processing.contains(url))
            overview += QStringLiteral(" [wird gerade verarbeitet]");
        else if (const auto it = m_fileSchemas.constFind(url); it != m_fileSchemas.constEnd())
            overview += QStringLiteral(" (") + it.value() + QStringLiteral(")");
        else
            overview += QStringLiteral(" [bereit]");
        overview += QLatin1Char('\n');
    }
    return overview;
}

std::shared_ptr<const KnowledgeSnapshot> ContextManager::snapshot() const
{
    QMutexLocker lock(&m_snapshotMutex);
    return m_snapshot;
}

bool ContextManager::isIdle() const
{
    return m_runningRuns == 0 && m_monitor->pending() == 0;
}

QCoro::Task<> ContextManager::waitUntilIdle()
{
    // A short poll rather than awaiting becameIdle: a signal awaiter resumed from inside the emission that a
    // finishing run makes can outlive its connection, and the wait is only used where a few ms do not matter.
    QPointer<ContextManager> self(this);
    while (self && !self->isIdle())
        co_await QCoro::sleepFor(std::chrono::milliseconds(10));
}

void ContextManager::updateGlobalChunks()
{
    // Only the lists are joined here; each file's norms were computed with its chunks, off this thread.
    QList<DocumentChunk> merged;
    QList<double> norms;
    for (auto it = m_fileChunks.cbegin(); it != m_fileChunks.cend(); ++it) {
        merged.append(it.value());
        norms.append(m_fileNorms.value(it.key()));
    }
    m_globalChunks = std::move(merged);
    m_globalNorms = std::move(norms);
}

void ContextManager::startMonitoring(const QUrl &url)
{
    m_monitor->startMonitoring(url);
}

void ContextManager::stopMonitoring(const QUrl &url)
{
    m_monitor->stopMonitoring(url);
}

void ContextManager::onFileEventSettled(const QUrl &url, bool restart)
{
    // A file removed while the reaction waited stays removed: it is neither watched nor processed again.
    const QString path = url.path();
    const bool tracked = std::any_of(m_trackedFiles.cbegin(), m_trackedFiles.cend(),
                                     [&path](const QUrl &known) { return known.path() == path; });
    if (tracked) {
        if (restart)
            startMonitoring(url);
        processFile(url);
    }
    checkIdle();
}

void ContextManager::markProcessing(const QUrl &url)
{
    if (m_processingFiles.contains(url))
        return;
    m_processingFiles.append(url);
    publish();
    emit processingFilesChanged();
}

void ContextManager::unmarkProcessing(const QUrl &url)
{
    if (m_processingFiles.removeAll(url) == 0)
        return;
    publish();
    emit processingFilesChanged();
}

void ContextManager::storeText(const QUrl &url, const QString &text)
{
    m_fileTexts.insert(url, text);
    publish();
}

void ContextManager::storeSchema(const QUrl &url, const QString &description)
{
    m_fileSchemas.insert(url, description);
    publish();
}

void ContextManager::storeChunks(const QUrl &url, ChunkBatch batch)
{
    m_fileChunks.insert(url, std::move(batch.chunks));
    m_fileNorms.insert(url, std::move(batch.norms));
    for (const QString &key : std::as_const(batch.sourceKeys))
        m_chunkSourceMap.insert(key, url);
    updateGlobalChunks();
    const bool wasMarked = m_processingFiles.removeAll(url) > 0;
    publish();
    if (wasMarked)
        emit processingFilesChanged();
    log(QStringLiteral("✅ Processed: %1 (%2 chunks, %3 total)")
            .arg(url.fileName(), QString::number(batch.created), QString::number(m_globalChunks.size())));
}

void ContextManager::runStarted()
{
    ++m_runningRuns;
}

void ContextManager::runFinished(const QUrl &url)
{
    --m_runningRuns;
    if (!m_processingFiles.contains(url) && m_rerunFiles.remove(url))
        processFile(url);
    checkIdle();
}

void ContextManager::checkIdle()
{
    if (isIdle())
        emit becameIdle();
}

void ContextManager::publish()
{
    auto next = std::make_shared<KnowledgeSnapshot>();
    next->trackedFiles = m_trackedFiles;
    next->chunkSourceMap = m_chunkSourceMap;
    next->fileTexts = m_fileTexts;
    next->overview = getKnowledgeOverview();
    next->globalChunks = m_globalChunks;
    next->globalNorms = m_globalNorms;
    QMutexLocker lock(&m_snapshotMutex);
    m_snapshot = std::move(next);
}
