#pragma once

#include <QPointer>
#include <QUrl>

#include <qcoro/qcorotask.h>

class ContextManager;

// One file's way into the knowledge base: extract, chunk, embed in batches of 50 (with the provider client's
// embeddings model; batches whose vectors are all in the vector cache are not sent), store. The coroutine
// lives on the main thread, where every write of the knowledge base's state happens; extraction and chunking
// go to the thread pool and the embedding requests are awaited. A run cannot be cancelled; it stops early
// only when the knowledge base itself is gone.
class ProcessingRun {
public:
    static constexpr int BatchSize = 50;

    // The knowledge base counted the run when it was asked for; the run reports its end.
    static QCoro::Task<> run(QPointer<ContextManager> manager, QUrl url);
};
