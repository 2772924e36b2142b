#include "KnowledgePool.h"

#include <QThread>

#include <algorithm>

#include <sys/resource.h>
#include <unistd.h>

namespace {

struct Pool : QThreadPool {
    Pool() { setMaxThreadCount(std::max(1, QThread::idealThreadCount() / 2)); }
};

Q_GLOBAL_STATIC(Pool, pool)

} // namespace

QThreadPool *KnowledgePool::instance()
{
    return pool();
}

void KnowledgePool::lowerPriority()
{
    thread_local bool lowered = false;
    if (lowered)
        return;
    lowered = true;
    // A niceness of its own for this thread (Linux schedules threads one by one); raising it needs no rights.
    setpriority(PRIO_PROCESS, id_t(gettid()), 10);
}
