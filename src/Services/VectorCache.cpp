#include "VectorCache.h"

#include "Core/Console.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPromise>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QVariant>
#include <QtEndian>

#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace {

// SQLite's primary result codes (Qt reports the extended ones; the low byte is the primary code).
constexpr int SqliteCorrupt = 11;
constexpr int SqliteNotADatabase = 26;

// How long a file held by another instance (or failing for another passing reason) is left alone.
constexpr int RetryAfterMs = 30000;
// How long one statement waits for another instance's lock before the cache gives up on it.
constexpr int BusyTimeoutMs = 1000;

int primaryCode(const QSqlError &error)
{
    bool ok = false;
    const int code = error.nativeErrorCode().toInt(&ok);
    return ok ? code & 0xff : -1;
}

QString describe(const QSqlError &error)
{
    const QString text = error.databaseText().isEmpty() ? error.text() : error.databaseText();
    return text.isEmpty() ? QStringLiteral("unknown error") : text;
}

qint64 today()
{
    return QDateTime::currentSecsSinceEpoch() / 86400;
}

QByteArray keyOf(const QString &text)
{
    return QCryptographicHash::hash(text.toUtf8(), QCryptographicHash::Sha256);
}

// Little-endian 64-bit floats, so the file reads the same on any machine.
QByteArray encode(const QList<double> &vector)
{
    QByteArray bytes(vector.size() * 8, Qt::Uninitialized);
    char *out = bytes.data();
    for (double x : vector) {
        quint64 bits = 0;
        std::memcpy(&bits, &x, 8);
        qToLittleEndian(bits, out);
        out += 8;
    }
    return bytes;
}

VectorCache::Entry decode(const QByteArray &bytes)
{
    if (bytes.isEmpty() || bytes.size() % 8 != 0)
        return std::nullopt;
    QList<double> vector(bytes.size() / 8);
    const char *in = bytes.constData();
    for (double &x : vector) {
        const quint64 bits = qFromLittleEndian<quint64>(in);
        std::memcpy(&x, &bits, 8);
        in += 8;
    }
    return vector;
}

std::atomic<int> g_connections{0};

} // namespace

// Everything that touches the database; it lives on the cache's one thread. A connection is closed only
// once no query of it is left, so each step that uses the database returns its error and the caller acts
// on it afterwards.
class VectorCache::Store {
public:
    Store(const QString &path, Limits limits)
        : m_path(path)
        , m_limits(limits)
        , m_connection(QStringLiteral("quillmoor-vectors-") + QString::number(++g_connections))
    {
    }

    QList<Entry> lookup(const QString &model, const QStringList &texts);
    bool store(const QString &model, const QStringList &texts, const QList<QList<double>> &vectors);
    void close();

private:
    enum class State { Closed, Open, Waiting, Ignored };
    using Failure = std::optional<QSqlError>;

    QSqlDatabase database() const { return QSqlDatabase::database(m_connection, false); }
    bool ensureOpen();
    // Opens the file, sets up the schema and prunes.
    Failure openFile();
    Failure prepareSchema();
    Failure readEntries(const QString &model, const QStringList &texts, QList<Entry> &entries);
    Failure writeEntries(const QString &model, const QStringList &texts, const QList<QList<double>> &vectors,
                         qint64 *added);
    Failure prune();
    // After a failed step: a damaged file is replaced once, anything else makes the cache wait a while.
    void recover(const QSqlError &error);
    void wait(const QSqlError &error);

    QString m_path;
    Limits m_limits;
    QString m_connection;
    State m_state = State::Closed;
    QDeadlineTimer m_retry;
    qint64 m_bytes = 0; // vector bytes in the file, counted high between prunings
};

bool VectorCache::Store::ensureOpen()
{
    if (m_state == State::Open)
        return true;
    if (m_state == State::Ignored || (m_state == State::Waiting && !m_retry.hasExpired()))
        return false;
    if (const Failure failure = openFile())
        recover(*failure);
    return m_state == State::Open;
}

VectorCache::Store::Failure VectorCache::Store::openFile()
{
    close();
    if (!QDir().mkpath(QFileInfo(m_path).absolutePath()))
        return QSqlError(QStringLiteral("cannot create its folder"), {}, QSqlError::ConnectionError);
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
        db.setDatabaseName(m_path);
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=") + QString::number(BusyTimeoutMs));
        if (!db.open())
            return db.lastError();
    }
    if (Failure failure = prepareSchema())
        return failure;
    if (m_state == State::Ignored)
        return std::nullopt;
    m_state = State::Open;
    return prune();
}

VectorCache::Store::Failure VectorCache::Store::prepareSchema()
{
    QSqlDatabase db = database();
    QSqlQuery query(db);
    // The first read of the file: a file that is no database fails here.
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next())
        return query.lastError();
    const int version = query.value(0).toInt();
    query.finish();
    if (version > SchemaVersion) {
        // A newer version's file is that version's to keep.
        m_state = State::Ignored;
        Console::line(QStringLiteral("⚠️ Vector cache ") + m_path +
                      QStringLiteral(" belongs to a newer version; vectors are fetched from the server"));
        return std::nullopt;
    }
    // Readers and a writer of other instances do not block each other.
    if (!query.exec(QStringLiteral("PRAGMA journal_mode=WAL")) ||
        !query.exec(QStringLiteral("PRAGMA synchronous=NORMAL")))
        return query.lastError();
    if (version == SchemaVersion)
        return std::nullopt;
    // A new file, or one of an older layout: its vectors are simply fetched again.
    if (!db.transaction())
        return db.lastError();
    const bool created =
        query.exec(QStringLiteral("DROP TABLE IF EXISTS vectors")) &&
        query.exec(QStringLiteral("CREATE TABLE vectors (model TEXT NOT NULL, key BLOB NOT NULL, vector BLOB "
                                  "NOT NULL, used INTEGER NOT NULL, PRIMARY KEY (model, key))")) &&
        query.exec(QStringLiteral("CREATE INDEX vectors_by_use ON vectors (used)")) &&
        query.exec(QStringLiteral("PRAGMA user_version = ") + QString::number(SchemaVersion));
    if (!created) {
        const QSqlError error = query.lastError();
        db.rollback();
        return error;
    }
    if (!db.commit())
        return db.lastError();
    return std::nullopt;
}

void VectorCache::Store::recover(const QSqlError &error)
{
    const int code = primaryCode(error);
    if (code != SqliteCorrupt && code != SqliteNotADatabase) {
        wait(error);
        return;
    }
    Console::line(QStringLiteral("⚠️ Vector cache ") + m_path + QStringLiteral(" is damaged (") +
                  describe(error) + QStringLiteral("); starting a new one"));
    close();
    for (const QString &suffix :
         {QString(), QStringLiteral("-wal"), QStringLiteral("-shm"), QStringLiteral("-journal")})
        QFile::remove(m_path + suffix);
    // A new file that fails as well is not the old file's damage: the cache waits instead.
    if (const Failure failure = openFile())
        wait(*failure);
}

void VectorCache::Store::wait(const QSqlError &error)
{
    close();
    if (m_state == State::Ignored)
        return;
    m_state = State::Waiting;
    m_retry.setRemainingTime(RetryAfterMs);
    Console::line(QStringLiteral("⚠️ Vector cache ") + m_path + QStringLiteral(" not available (") +
                  describe(error) + QStringLiteral("); vectors are fetched from the server for now"));
}

void VectorCache::Store::close()
{
    if (QSqlDatabase::contains(m_connection))
        QSqlDatabase::removeDatabase(m_connection); // closes it; no query or handle is left by then
    if (m_state == State::Open)
        m_state = State::Closed;
}

QList<VectorCache::Entry> VectorCache::Store::lookup(const QString &model, const QStringList &texts)
{
    QList<Entry> entries(texts.size());
    if (texts.isEmpty() || !ensureOpen())
        return entries;
    if (const Failure failure = readEntries(model, texts, entries)) {
        recover(*failure);
        return QList<Entry>(texts.size());
    }
    return entries;
}

VectorCache::Store::Failure VectorCache::Store::readEntries(const QString &model, const QStringList &texts,
                                                            QList<Entry> &entries)
{
    QSqlDatabase db = database();
    QSqlQuery select(db);
    QSqlQuery touch(db);
    if (!select.prepare(QStringLiteral("SELECT vector, used FROM vectors WHERE model = ? AND key = ?")) ||
        !touch.prepare(QStringLiteral("UPDATE vectors SET used = ? WHERE model = ? AND key = ?")))
        return select.lastError().isValid() ? select.lastError() : touch.lastError();
    if (!db.transaction())
        return db.lastError();
    const qint64 now = today();
    for (qsizetype i = 0; i < texts.size(); ++i) {
        const QByteArray key = keyOf(texts[i]);
        select.addBindValue(model);
        select.addBindValue(key);
        if (!select.exec()) {
            const QSqlError error = select.lastError();
            db.rollback();
            return error;
        }
        if (!select.next())
            continue;
        entries[i] = decode(select.value(0).toByteArray());
        const bool stale = select.value(1).toLongLong() != now;
        select.finish();
        // The day of last use is written once a day, not at every start.
        if (entries[i] && stale) {
            touch.addBindValue(now);
            touch.addBindValue(model);
            touch.addBindValue(key);
            if (!touch.exec()) {
                const QSqlError error = touch.lastError();
                db.rollback();
                return error;
            }
        }
    }
    if (!db.commit())
        return db.lastError();
    return std::nullopt;
}

bool VectorCache::Store::store(const QString &model, const QStringList &texts,
                               const QList<QList<double>> &vectors)
{
    if (texts.isEmpty() || vectors.isEmpty() || !ensureOpen())
        return false;
    qint64 added = 0;
    if (const Failure failure = writeEntries(model, texts, vectors, &added)) {
        recover(*failure);
        return false;
    }
    m_bytes += added;
    if (m_bytes > m_limits.maxBytes) {
        if (const Failure failure = prune())
            recover(*failure);
    }
    return true;
}

VectorCache::Store::Failure VectorCache::Store::writeEntries(const QString &model, const QStringList &texts,
                                                             const QList<QList<double>> &vectors,
                                                             qint64 *added)
{
    QSqlDatabase db = database();
    QSqlQuery insert(db);
    if (!insert.prepare(
            QStringLiteral("INSERT OR REPLACE INTO vectors (model, key, vector, used) VALUES (?, ?, ?, ?)")))
        return insert.lastError();
    if (!db.transaction())
        return db.lastError();
    const qint64 now = today();
    const qsizetype count = std::min(texts.size(), vectors.size());
    for (qsizetype i = 0; i < count; ++i) {
        if (vectors[i].isEmpty())
            continue;
        const QByteArray bytes = encode(vectors[i]);
        insert.addBindValue(model);
        insert.addBindValue(keyOf(texts[i]));
        insert.addBindValue(bytes);
        insert.addBindValue(now);
        if (!insert.exec()) {
            const QSqlError error = insert.lastError();
            db.rollback();
            return error;
        }
        *added += bytes.size();
    }
    if (!db.commit())
        return db.lastError();
    return std::nullopt;
}

VectorCache::Store::Failure VectorCache::Store::prune()
{
    QSqlDatabase db = database();
    QSqlQuery query(db);
    if (!db.transaction())
        return db.lastError();
    const auto failed = [&db](const QSqlQuery &q) {
        const QSqlError error = q.lastError();
        db.rollback();
        return error;
    };
    query.prepare(QStringLiteral("DELETE FROM vectors WHERE used < ?"));
    query.addBindValue(today() - m_limits.maxAgeDays);
    if (!query.exec() ||
        !query.exec(QStringLiteral("SELECT COALESCE(SUM(LENGTH(vector)), 0) FROM vectors")) || !query.next())
        return failed(query);
    qint64 total = query.value(0).toLongLong();
    query.finish();
    if (total > m_limits.maxBytes) {
        // Down to nine tenths of the limit, so that the next files do not prune again at once.
        const qint64 target = m_limits.maxBytes / 10 * 9;
        QList<qint64> victims;
        if (!query.exec(QStringLiteral("SELECT rowid, LENGTH(vector) FROM vectors ORDER BY used, rowid")))
            return failed(query);
        while (total > target && query.next()) {
            victims.append(query.value(0).toLongLong());
            total -= query.value(1).toLongLong();
        }
        query.finish();
        if (!query.prepare(QStringLiteral("DELETE FROM vectors WHERE rowid = ?")))
            return failed(query);
        for (qint64 rowid : std::as_const(victims)) {
            query.addBindValue(rowid);
            if (!query.exec())
                return failed(query);
        }
    }
    if (!db.commit())
        return db.lastError();
    m_bytes = total;
    return std::nullopt;
}

QString VectorCache::defaultPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
           QStringLiteral("/Quillmoor/vectors.sqlite");
}

VectorCache::VectorCache(const QString &path)
    : VectorCache(path, Limits())
{
}

// The cache's one thread and its queue. Standard threads and locks, so that ThreadSanitizer follows every
// hand-over (Debian's Qt hides its own from it).
class VectorCache::Worker {
public:
    Worker()
        : m_thread([this] { loop(); })
    {
    }
    ~Worker()
    {
        {
            std::lock_guard lock(m_mutex);
            m_stopping = true;
        }
        m_wake.notify_one();
        m_thread.join(); // runs what is queued first
    }

    // Runs `work` on the worker's thread, after everything queued before it.
    template <typename Work> auto run(Work work) -> QFuture<decltype(work())>
    {
        using Result = decltype(work());
        auto promise = std::make_shared<QPromise<Result>>();
        QFuture<Result> future = promise->future();
        promise->start();
        {
            std::lock_guard lock(m_mutex);
            m_tasks.push_back([promise, work = std::move(work)]() mutable {
                promise->addResult(work());
                promise->finish();
            });
        }
        m_wake.notify_one();
        return future;
    }

private:
    void loop()
    {
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock lock(m_mutex);
                m_wake.wait(lock, [this] { return m_stopping || !m_tasks.empty(); });
                if (m_tasks.empty())
                    return;
                task = std::move(m_tasks.front());
                m_tasks.pop_front();
            }
            task();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_tasks;
    bool m_stopping = false;
    std::thread m_thread; // last: it starts at once and uses the members above
};

VectorCache::VectorCache(const QString &path, Limits limits)
    : m_path(path)
    , m_store(std::make_unique<Store>(path, limits))
    , m_worker(std::make_unique<Worker>())
{
}

VectorCache::~VectorCache()
{
    Store *store = m_store.get();
    m_worker->run([store] {
        store->close();
        return true;
    });
    m_worker.reset();
}

QFuture<QList<VectorCache::Entry>> VectorCache::lookup(const QString &model, const QStringList &texts)
{
    Store *store = m_store.get();
    return m_worker->run([store, model, texts] { return store->lookup(model, texts); });
}

QFuture<bool> VectorCache::store(const QString &model, const QStringList &texts,
                                 const QList<QList<double>> &vectors)
{
    Store *store = m_store.get();
    return m_worker->run([store, model, texts, vectors] { return store->store(model, texts, vectors); });
}
