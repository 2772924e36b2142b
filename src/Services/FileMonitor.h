#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QUrl>

class QSocketNotifier;

// Watches knowledge files for writes, deletions and renames through one inotify instance read on the main
// thread. Each event is reported half a second later through `settled`; a deletion or rename asks the owner
// to watch the path afresh first, which is how editors that save by renaming a new file over the old one
// stay followed. At most one watch per file.
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
    void readEvents();
    void react(const QUrl &url, int events);

    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
    QHash<QUrl, int> m_watches;
    QHash<int, QUrl> m_files;
    int m_pending = 0;
};
