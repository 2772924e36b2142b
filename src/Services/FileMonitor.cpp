#include "FileMonitor.h"

#include "Services/ContextManager.h"

#include <QFile>
#include <QList>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace {
constexpr uint32_t WatchedMask = IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF;
}

FileMonitor::FileMonitor(QObject *parent)
    : QObject(parent)
    , m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (m_fd >= 0) {
        m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &FileMonitor::readEvents);
    }
}

FileMonitor::~FileMonitor()
{
    delete m_notifier;
    // Closing the instance drops every watch with it.
    if (m_fd >= 0)
        ::close(m_fd);
}

QString FileMonitor::describe(int events)
{
    return QStringLiteral("FileSystemEvent(rawValue: %1)").arg(events);
}

void FileMonitor::startMonitoring(const QUrl &url)
{
    stopMonitoring(url);
    const QString path = url.toLocalFile();
    const int wd = m_fd < 0 || path.isEmpty()
                       ? -1
                       : inotify_add_watch(m_fd, QFile::encodeName(path).constData(), WatchedMask);
    if (wd < 0) {
        ContextManager::log(QStringLiteral("❌ Failed to open for monitoring: ") + path);
        return;
    }
    m_watches.insert(url, wd);
    m_files.insert(wd, url);
    ContextManager::log(QStringLiteral("👁️ Started monitoring: ") + url.fileName());
}

void FileMonitor::stopMonitoring(const QUrl &url)
{
    const auto it = m_watches.find(url);
    if (it == m_watches.end())
        return;
    const int wd = it.value();
    m_watches.erase(it);
    if (m_files.value(wd) == url)
        m_files.remove(wd);
    // Fails harmlessly when the kernel already dropped the watch (the file is gone).
    inotify_rm_watch(m_fd, wd);
}

void FileMonitor::readEvents()
{
    alignas(inotify_event) char buffer[16 * 1024];
    // Several events of one file read together count as one set, as an event source coalesces them.
    QList<int> order;
    QHash<int, int> events;
    for (;;) {
        const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
        if (n <= 0)
            break;
        for (ssize_t offset = 0; offset < n;) {
            inotify_event event;
            std::memcpy(&event, buffer + offset, sizeof event);
            offset += ssize_t(sizeof(inotify_event) + event.len);
            int kinds = 0;
            if (event.mask & IN_DELETE_SELF)
                kinds |= Delete;
            if (event.mask & IN_MODIFY)
                kinds |= Write;
            if (event.mask & IN_MOVE_SELF)
                kinds |= Rename;
            if (kinds == 0 || !m_files.contains(event.wd))
                continue;
            if (!events.contains(event.wd))
                order.append(event.wd);
            events[event.wd] |= kinds;
        }
    }
    for (int wd : order) {
        if (m_files.contains(wd))
            react(m_files.value(wd), events.value(wd));
    }
}

void FileMonitor::react(const QUrl &url, int events)
{
    const QString name = url.fileName();
    ContextManager::log(QStringLiteral("🔔 File event [") + describe(events) + QStringLiteral("] for ") +
                        name);
    const bool restart = events & (Delete | Rename);
    if (restart)
        ContextManager::log(QStringLiteral("♻️ Restarting monitor for ") + name);
    ++m_pending;
    // Parented to the monitor: once the knowledge base is gone, nothing fires.
    QTimer::singleShot(DelayMs, Qt::PreciseTimer, this, [this, url, restart] {
        --m_pending;
        emit settled(url, restart);
    });
}
