#include "KnowledgePool.h"

#include <QThread>

#include <algorithm>

#include <sys/resource.h>
#include <unistd.h>

namespace {

struct Pool : QThreadPool {
    Pool() { setMaxThreadCount(std::max(1, QThread::idealThreadCount() / 2)); }
};

} // namespace

QThreadPool *KnowledgePool::instance()
{
    // Like Qt's global pool it lives until the process ends, and waits then for the work it is doing.
    static Pool pool;
    return &pool;
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
