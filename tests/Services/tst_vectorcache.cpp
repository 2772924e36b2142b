#include "ConsoleCapture.h"
#include "Services/VectorCache.h"
#include "TestMain.h"

#include <QDateTime>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <functional>

namespace {

const QString Model = QStringLiteral("bge_multilingual_gemma2");

// Values that survive only an exact round trip: thirds and a tiny exponent.
QList<double> vectorFor(int i)
{
    return {i / 3.0, -1.0 / (i + 7), 1e-300 * i, double(i)};
}

QStringList texts(int from, int count)
{
    QStringList result;
    for (int i = from; i < from + count; ++i)
        result.append(QStringLiteral("[Notizen] Abschnitt %1 über Äpfel").arg(i));
    return result;
}

bool store(VectorCache &cache, int from, int count)
{
    QList<QList<double>> vectors;
    for (int i = from; i < from + count; ++i)
        vectors.append(vectorFor(i));
    return cache.store(Model, texts(from, count), vectors).result();
}

// Raw SQL on the cache file, as another program (or another version) would do it.
void onFile(const std::function<void(QSqlQuery &)> &work)
{
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("test"));
        db.setDatabaseName(VectorCache::defaultPath());
        QVERIFY(db.open());
        QSqlQuery query(db);
        work(query);
    }
    QSqlDatabase::removeDatabase(QStringLiteral("test"));
}

} // namespace

class TestVectorCache : public QObject {
    Q_OBJECT

private slots:
    void init() { QDir(TestEnvironment::home().filePath(QStringLiteral(".cache"))).removeRecursively(); }

    // What one run stored, the next run reads back bit for bit, for the same model and text only. Whatever
    // is wrong with the file, the cache never fails its caller: a damaged or outdated file is replaced, one
    // that is locked or of a newer version is left alone for now. (A file that is no database at all is the
    // knowledge base's test.)
    void survivesItsFile_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<bool>("usable");
        QTest::addColumn<QString>("line");
        QTest::addRow("intact") << "intact" << true << "";
        QTest::addRow("damaged pages") << "damaged" << true << "is damaged";
        QTest::addRow("older layout") << "older" << true << "";
        QTest::addRow("newer version") << "newer" << false << "belongs to a newer version";
        QTest::addRow("locked by another instance") << "locked" << false << "not available";
        QTest::addRow("folder cannot be made") << "blocked" << false << "not available";
    }
    void survivesItsFile()
    {
        QFETCH(QString, situation);
        QFETCH(bool, usable);
        QFETCH(QString, line);
        {
            VectorCache cache;
            QVERIFY(store(cache, 0, 200));
        }
        const QString path = VectorCache::defaultPath();
        QSqlDatabase lock;
        if (situation == QLatin1String("damaged")) {
            // Keep the header, scribble over the pages behind it.
            onFile([](QSqlQuery &q) { QVERIFY(q.exec("PRAGMA wal_checkpoint(TRUNCATE)")); });
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadWrite) && file.size() > 16384);
            file.seek(4096);
            file.write(QByteArray(file.size() - 4096, '\xff'));
        } else if (situation == QLatin1String("older")) {
            QVERIFY(QFile::remove(path));
            onFile([](QSqlQuery &q) { QVERIFY(q.exec("CREATE TABLE vectors (text TEXT, v BLOB)")); });
        } else if (situation == QLatin1String("newer")) {
            onFile([](QSqlQuery &q) { QVERIFY(q.exec("PRAGMA user_version = 99")); });
        } else if (situation == QLatin1String("locked")) {
            lock = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("lock"));
            lock.setDatabaseName(path);
            QVERIFY(lock.open());
            QSqlQuery q(lock);
            QVERIFY(q.exec("PRAGMA locking_mode = EXCLUSIVE") && q.exec("BEGIN EXCLUSIVE"));
            QVERIFY(q.exec("DELETE FROM vectors WHERE rowid = 1"));
        } else if (situation == QLatin1String("blocked")) {
            QVERIFY(QDir(QFileInfo(path).path()).removeRecursively());
            QVERIFY(QFile(QFileInfo(path).path()).open(QIODevice::WriteOnly));
        }

        ConsoleCapture console;
        {
            VectorCache cache;
            // Nothing of a broken file is trusted or reachable; one space more is another text.
            const QList<VectorCache::Entry> kept{vectorFor(0), vectorFor(1), {}};
            QCOMPARE(cache.lookup(Model, texts(0, 2) << texts(1, 1).first() + QLatin1Char(' ')).result(),
                     situation == QLatin1String("intact") ? kept : QList<VectorCache::Entry>(3));
            QCOMPARE(cache.lookup(QStringLiteral("nomic-embed-text"), texts(0, 1)).result().first(),
                     VectorCache::Entry());
            QCOMPARE(store(cache, 500, 2), usable);
            QCOMPARE(cache.lookup(Model, texts(501, 1)).result().first(),
                     usable ? VectorCache::Entry(vectorFor(501)) : VectorCache::Entry());
        }
        QCOMPARE(console.lines().size(), int(!line.isEmpty()));
        QVERIFY(console.text().contains(line));

        if (situation == QLatin1String("newer"))
            onFile([](QSqlQuery &q) {
                QVERIFY(q.exec("PRAGMA user_version") && q.next());
                QCOMPARE(q.value(0).toInt(), 99); // left to the version that wrote it
            });
        if (situation == QLatin1String("locked")) {
            lock.rollback();
            lock.close();
            lock = QSqlDatabase();
            QSqlDatabase::removeDatabase(QStringLiteral("lock"));
            QCOMPARE(VectorCache().lookup(Model, texts(0, 1)).result().first(),
                     VectorCache::Entry(vectorFor(0)));
        }
    }

    // Past its size the cache drops the least recently used vectors first, and vectors unused for long go
    // whatever the size.
    void prunesOldEntries()
    {
        const VectorCache::Limits limits{4 * 8 * 25, 30}; // room for 25 vectors of four numbers
        {
            VectorCache cache(VectorCache::defaultPath(), limits);
            QVERIFY(store(cache, 0, 10) && store(cache, 10, 10));
        }
        // The first ten were last used long ago, the next ten yesterday.
        const qint64 today = QDateTime::currentSecsSinceEpoch() / 86400;
        onFile([today](QSqlQuery &q) {
            QVERIFY(q.prepare("UPDATE vectors SET used = ? - (rowid <= 10) * 30"));
            q.addBindValue(today - 1);
            QVERIFY(q.exec());
        });
        VectorCache cache(VectorCache::defaultPath(), limits);
        QCOMPARE(cache.lookup(Model, texts(0, 1)).result().first(), VectorCache::Entry());
        // Ten of yesterday are left; twenty more make 30 > 25, pruned to 22 by dropping eight of yesterday's.
        QVERIFY(store(cache, 20, 20) && store(cache, 40, 1));
        const QList<VectorCache::Entry> kept = cache.lookup(Model, texts(10, 31)).result();
        QCOMPARE(std::count_if(kept.cbegin(), kept.cend(), [](const auto &e) { return e.has_value(); }), 23);
        QVERIFY(kept.last().has_value());   // the newest
        QVERIFY(!kept.first().has_value()); // yesterday's go before today's
    }
};

QUILLMOOR_TEST_MAIN(TestVectorCache)
#include "tst_vectorcache.moc"
