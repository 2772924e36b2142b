#pragma once

#include "Services/DocumentChunk.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QUrl>

// What retrieval reads of the knowledge base, taken at one moment. The main thread builds a new one after
// every change and never touches a published one again, so readers on other threads need no further lock.
// The containers are implicitly shared, so taking one costs a few reference counts, not a copy.
struct KnowledgeSnapshot {
    QList<QUrl> trackedFiles;
    QHash<QString, QUrl> chunkSourceMap;
    QHash<QUrl, QString> fileTexts;
    QString overview;
    // The merged chunks with each vector's Euclidean norm at the same index, so a turn that was handed these
    // very chunks does not have to compute the norms again.
    QList<DocumentChunk> globalChunks;
    QList<double> globalNorms;
};
