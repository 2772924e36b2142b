#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

class QSocketNotifier;

// Watches knowledge files for writes, deletions and renames through one inotify instance read on the main
// thread. Each event is reported half a second later through `settled`; a deletion or rename asks the owner
// to watch the path afresh first, which is how editors that save by renaming a new file over the old one
// stay followed. At most one watch per file.
//
// Two things set Linux apart from the event sources the reactions were made for. The kernel reports a
// file's deletion only once no program holds it open any more; that the file lost its name comes at once
// as a change of its link count, so such an attribute change counts as a deletion when the path no longer
// names the watched file (other attribute changes are not watched). And the kernel keeps one watch per file:
// two tracked paths that lead to the same file (a symbolic link) share it, each hears its events, and the
// watch ends only with the last of them.
class FileMonitor : public QObject {
    Q_OBJECT
public:
    // The event kinds as the log prints them (and their sums for several at once).
    enum Event { Delete = 1, Write = 2, Rename = 32 };
    static constexpr int DelayMs = 500;

    explicit FileMonitor(QObject *parent = nullptr);
    ~FileMonitor() override;

    void startMonitoring(const QUrl &url);
    void stopMonitoring(const QUrl &url);

    bool isMonitoring(const QUrl &url) const { return m_watches.contains(url); }
    int count() const { return int(m_watches.size()); }
    // Reactions scheduled but not yet delivered.
    int pending() const { return m_pending; }

    // "FileSystemEvent(rawValue: 2)" for a write, the sum for a set.
    static QString describe(int events);

signals:
    void settled(const QUrl &url, bool restart);

private:
    // The file a watch is on, as the file system names it.
    struct Watch {
        QList<QUrl> urls;
        quint64 device = 0;
        quint64 inode = 0;
    };

    void readEvents();
    void react(const QUrl &url, int events);
    bool stillNames(const QUrl &url, const Watch &watch) const;

    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    QHash<QUrl, int> m_watches;
    QHash<int, Watch> m_files;
    int m_pending = 0;
};
