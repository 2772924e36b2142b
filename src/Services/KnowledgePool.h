#pragma once

#include <QFuture>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <utility>

// The threads that extract and chunk knowledge files: a pool of their own, of at most half the cores and
// at a lower scheduling priority, so that the work of a chat turn (retrieval, building the request), which
// runs on Qt's global pool, never queues behind a pile of large documents, nor loses its core to them.
namespace KnowledgePool {

QThreadPool *instance();
// Makes the calling thread yield to ordinary threads (once per thread).
void lowerPriority();

template <typename Function, typename... Args> auto run(Function function, Args... args)
{
    return QtConcurrent::run(instance(), [function, args...]() mutable {
        lowerPriority();
        return function(std::move(args)...);
    });
}

} // namespace KnowledgePool
