#include "FileMonitor.h"

#include "Services/ContextManager.h"

#include <QFile>
#include <QList>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr uint32_t WatchedMask = IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF | IN_ATTRIB;

bool identify(const QString &path, quint64 *device, quint64 *inode)
{
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return false;
    *device = quint64(info.st_dev);
    *inode = quint64(info.st_ino);
    return true;
}
} // namespace

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
    return QStringLiteral("FileSystemEvent(rawValue: ") + QString::number(events) + QLatin1Char(')');
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
    Watch &watch = m_files[wd];
    if (watch.urls.isEmpty())
        identify(path, &watch.device, &watch.inode);
    watch.urls.append(url);
    ContextManager::log(QStringLiteral("👁️ Started monitoring: ") + url.fileName());
}

void FileMonitor::stopMonitoring(const QUrl &url)
{
    const auto it = m_watches.find(url);
    if (it == m_watches.end())
        return;
    const int wd = it.value();
    m_watches.erase(it);
    const auto file = m_files.find(wd);
    if (file == m_files.end())
        return; // the kernel ended the watch already
    file->urls.removeAll(url);
    if (file->urls.isEmpty()) {
        m_files.erase(file);
        inotify_rm_watch(m_fd, wd);
    }
}

bool FileMonitor::stillNames(const QUrl &url, const Watch &watch) const
{
    quint64 device = 0, inode = 0;
    return identify(url.toLocalFile(), &device, &inode) && device == watch.device && inode == watch.inode;
}

void FileMonitor::readEvents()
{
    alignas(inotify_event) char buffer[16 * 1024];
    // Several events of one file read together count as one set, as an event source coalesces them.
    QList<int> order;
    QHash<int, uint32_t> masks;
    QList<int> ended;
    for (;;) {
        const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
        if (n <= 0)
            break;
        for (ssize_t offset = 0; offset < n;) {
            inotify_event event;
            std::memcpy(&event, buffer + offset, sizeof event);
            offset += ssize_t(sizeof(inotify_event) + event.len);
            if (!m_files.contains(event.wd))
                continue;
            if (event.mask & IN_IGNORED)
                ended.append(event.wd);
            if (!(event.mask & WatchedMask))
                continue;
            if (!masks.contains(event.wd))
                order.append(event.wd);
            masks[event.wd] |= event.mask;
        }
    }
    for (int wd : order) {
        const auto file = m_files.constFind(wd);
        if (file == m_files.constEnd())
            continue;
        const uint32_t mask = masks.value(wd);
        const Watch watch = file.value(); // reacting may change the watches
        for (const QUrl &url : watch.urls) {
            int kinds = 0;
            // A file that lost its name while another program keeps it open shows only its link count.
            if ((mask & IN_DELETE_SELF) || ((mask & IN_ATTRIB) && !stillNames(url, watch)))
                kinds |= Delete;
            if (mask & IN_MODIFY)
                kinds |= Write;
            if (mask & IN_MOVE_SELF)
                kinds |= Rename;
            if (kinds != 0)
                react(url, kinds);
        }
    }
    // The kernel dropped these watches (their file is gone): the paths are unwatched until restarted.
    for (int wd : std::as_const(ended)) {
        const auto file = m_files.find(wd);
        if (file == m_files.end())
            continue;
        for (const QUrl &url : std::as_const(file->urls))
            m_watches.remove(url);
        m_files.erase(file);
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
