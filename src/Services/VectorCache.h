#pragma once

#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QThread>

#include <memory>
#include <optional>

// Embedding vectors kept across runs, so that a chunk whose text and embeddings model are unchanged is
// never sent again. One SQLite file (through Qt SQL) under the user's cache folder, keyed by the model and
// the SHA-256 of the chunk's exact text; every write is one transaction.
//
// The cache is an optimisation and never a reason to lose knowledge: a file that is missing, unreadable or
// left by an older version is replaced by a new one, a file of a newer version is left alone, and while
// another instance holds the file locked the cache answers "unknown" and stores nothing. Entries unused for
// `maxAgeDays` are dropped, and past `maxBytes` of vectors the least recently used go first.
//
// Qt SQL lets a connection be used only by the thread that made it, so the cache does all its work on one
// thread of its own; every call returns at once with a future.
class VectorCache {
public:
    struct Limits {
        qint64 maxBytes = qint64(512) * 1024 * 1024;
        int maxAgeDays = 180;
    };
    // A vector known to the cache, or nothing.
    using Entry = std::optional<QList<double>>;

    static constexpr int SchemaVersion = 1;

    // "$XDG_CACHE_HOME/Quillmoor/vectors.sqlite" (~/.cache when the variable is unset).
    static QString defaultPath();

    explicit VectorCache(const QString &path = defaultPath());
    VectorCache(const QString &path, Limits limits);
    ~VectorCache();
    VectorCache(const VectorCache &) = delete;
    VectorCache &operator=(const VectorCache &) = delete;

    const QString &path() const { return m_path; }

    // One entry per text, in order.
    QFuture<QList<Entry>> lookup(const QString &model, const QStringList &texts);
    // Keeps the vector of each text (paired in order; only as many as both lists hold). Resolves to whether
    // the vectors were written.
    QFuture<bool> store(const QString &model, const QStringList &texts, const QList<QList<double>> &vectors);

private:
    class Store;
    class Worker;

    QString m_path;
    std::unique_ptr<Store> m_store; // used on the worker's thread only
    std::unique_ptr<Worker> m_worker;
};
