#pragma once

#include "Services/DocumentChunk.h"
#include "Services/InfomaniakAPI.h"

#include <QList>
#include <QObject>
#include <QUrl>

#include <memory>

// The knowledge base: which files the user chose, their texts, chunks with vectors and descriptions,
// kept current as files are added, removed, processed and changed on disk. State lives on the main thread.
class ContextManager : public QObject {
    Q_OBJECT
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

private:
    std::shared_ptr<const InfomaniakAPI> m_api;
    QList<DocumentChunk> m_globalChunks;
};
