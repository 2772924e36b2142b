#pragma once

#include "Services/DocumentChunk.h"
#include "Services/InfomaniakAPI.h"
#include "Services/KnowledgeSnapshot.h"

#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <memory>

class FileMonitor;
class ProcessingRun;
class VectorCache;

// The knowledge base: which files the user chose, their texts, chunks with vectors and descriptions,
// kept current as files are added, removed, processed and changed on disk. State lives on the main thread;
// other threads read the published snapshot. Processing runs and the file monitor are units of their own.
class ContextManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(QList<QUrl> trackedFiles READ trackedFiles NOTIFY trackedFilesChanged)
    Q_PROPERTY(QList<QUrl> processingFiles READ processingFiles NOTIFY processingFilesChanged)
    Q_PROPERTY(bool isProcessing READ isProcessing NOTIFY processingFilesChanged)
public:
    explicit ContextManager(std::shared_ptr<const InfomaniakAPI> api, QObject *parent = nullptr);
    ~ContextManager() override;

    // The most recently created knowledge base (the provider client's retrieval reads it).
    static ContextManager *shared();
    // The knowledge pipeline's debug log (any thread).
    static void log(const QString &message);

    const InfomaniakAPI &api() const { return *m_api; }
    std::shared_ptr<const InfomaniakAPI> apiPtr() const { return m_api; }
    const QList<DocumentChunk> &globalChunks() const { return m_globalChunks; }

    // Main thread only.
    const QList<QUrl> &trackedFiles() const { return m_trackedFiles; }
    const QList<QUrl> &processingFiles() const { return m_processingFiles; }
    bool isProcessing() const { return !m_processingFiles.isEmpty(); }
    const QHash<QUrl, QString> &fileTexts() const { return m_fileTexts; }
    const QHash<QString, QUrl> &chunkSourceMap() const { return m_chunkSourceMap; }
    QList<DocumentChunk> fileChunks(const QUrl &url) const { return m_fileChunks.value(url); }
    QString fileSchema(const QUrl &url) const { return m_fileSchemas.value(url); }
    int monitorCount() const;

    Q_INVOKABLE void addFile(const QUrl &url);
    Q_INVOKABLE void removeFile(const QUrl &url);
    Q_INVOKABLE void processFile(const QUrl &url);
    Q_INVOKABLE QString getKnowledgeOverview() const;

    // Any thread: the knowledge base as of the last change on the main thread.
    std::shared_ptr<const KnowledgeSnapshot> snapshot() const;

    // Resolves once no processing run is under way and no re-processing after a file event is pending.
    QCoro::Task<> waitUntilIdle();
    bool isIdle() const;

    // A run's chunks as they are stored, prepared off the main thread.
    struct ChunkBatch {
        QList<DocumentChunk> chunks; // paired with their vectors, as far as there are vectors
        QList<double> norms;         // each vector's Euclidean norm
        QStringList sourceKeys;      // every chunk's first 100 characters, also of those without a vector
        qsizetype created = 0;       // chunks the run made
    };

signals:
    void trackedFilesChanged();
    void processingFilesChanged();
    void becameIdle();

private:
    friend class ProcessingRun;

    void updateGlobalChunks();
    void startMonitoring(const QUrl &url);
    void stopMonitoring(const QUrl &url);
    void onFileEventSettled(const QUrl &url, bool restart);

    // The steps of a processing run that write state; each is called on the main thread.
    void markProcessing(const QUrl &url);
    void unmarkProcessing(const QUrl &url);
    void storeText(const QUrl &url, const QString &text);
    void storeSchema(const QUrl &url, const QString &description);
    void storeChunks(const QUrl &url, ChunkBatch batch);
    void runStarted();
    void runFinished(const QUrl &url);

    void publish();
    void checkIdle();
    std::shared_ptr<VectorCache> vectorCache() const { return m_vectorCache; }

    std::shared_ptr<const InfomaniakAPI> m_api;
    // Shared with the runs, which may outlive the knowledge base by one await.
    std::shared_ptr<VectorCache> m_vectorCache;
    QList<QUrl> m_trackedFiles;
    QList<QUrl> m_processingFiles;
    QList<DocumentChunk> m_globalChunks;
    QList<double> m_globalNorms;
    QHash<QUrl, QString> m_fileSchemas;
    FileMonitor *m_monitor;
    QHash<QUrl, QList<DocumentChunk>> m_fileChunks;
    QHash<QUrl, QList<double>> m_fileNorms;
    QHash<QUrl, QString> m_fileTexts;
    QHash<QString, QUrl> m_chunkSourceMap;

    int m_runningRuns = 0;
    // Files asked for while their run was going: processed once more when it ends.
    QSet<QUrl> m_rerunFiles;

    mutable QMutex m_snapshotMutex;
    std::shared_ptr<const KnowledgeSnapshot> m_snapshot;
};
