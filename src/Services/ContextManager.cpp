#include "ContextManager.h"

#include "Services/DebugLog.h"

#include <atomic>

namespace {
std::atomic<ContextManager *> g_shared{nullptr};
}

ContextManager::ContextManager(std::shared_ptr<const InfomaniakAPI> api, QObject *parent)
    : QObject(parent)
    , m_api(std::move(api))
{
    g_shared.store(this);
    DebugLog::start();
    log(QStringLiteral("ContextManager initialized"));
}

ContextManager::~ContextManager()
{
    ContextManager *self = this;
    g_shared.compare_exchange_strong(self, nullptr);
}

ContextManager *ContextManager::shared() { return g_shared.load(); }

void ContextManager::log(const QString &message) { DebugLog::log(message); }
