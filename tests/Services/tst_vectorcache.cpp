#include "ConsoleCapture.h"
#include "Services/VectorCache.h"
#include "TestMain.h"

#include <QDateTime>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <functional>

namespace {

const QString Model = QStringLiteral("bge_multilingual_gemma2");

QList<double> vectorFor(int i)
{
    // Values that survive only an exact round trip: thirds and a tiny exponent.
    return {i / 3.0, -1.0 / (i + 7), 1e-300 * i, double(i)};
}

QStringList texts(int from, int count)
{
    QStringList result;
    for (int i = from; i < from + count; ++i)
        result.append(QStringLiteral("[Notizen] Abschnitt %1 über Äpfel").arg(i));
    return result;
}

QList<QList<double>> vectors(int from, int count)
{
    QList<QList<double>> result;
    for (int i = from; i < from + count; ++i)
        result.append(vectorFor(i));
    return result;
}

// Raw SQL on the cache file, as another program (or another version) would do it.
void onFile(const QString &path, const std::function<void(QSqlQuery &)> &work)
{
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("test"));
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QSqlQuery query(db);
        work(query);
    }
    QSqlDatabase::removeDatabase(QStringLiteral("test"));
}

} // namespace

class TestVectorCache : public QObject {
    Q_OBJECT

    QString m_path;

private slots:
    void init()
    {
        m_path = TestEnvironment::home().filePath(QStringLiteral(".cache/Quillmoor/vectors.sqlite"));
        QDir(TestEnvironment::home().filePath(QStringLiteral(".cache"))).removeRecursively();
    }

    // What one run stored, the next run reads back bit for bit, for the same model and text only.
    void keepsVectorsAcrossRuns()
    {
        {
            VectorCache cache;
            QVERIFY(cache.store(Model, texts(0, 3), vectors(0, 3)).result());
        }
        VectorCache cache;
        const QList<VectorCache::Entry> known =
            cache.lookup(Model, texts(0, 4) + QStringList{texts(1, 1).first() + QLatin1Char(' ')}).result();
        QCOMPARE(known.size(), 5);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(known[i], VectorCache::Entry(vectorFor(i)));
        QCOMPARE(known[3], VectorCache::Entry());
        QCOMPARE(known[4], VectorCache::Entry()); // one space more is another text
        QCOMPARE(cache.lookup(QStringLiteral("nomic-embed-text"), texts(0, 1)).result(),
                 QList<VectorCache::Entry>{VectorCache::Entry()});
    }

    // Whatever is wrong with the file, the cache never fails its caller: a damaged or outdated file is
    // replaced, one that is locked or of a newer version is left alone for now. (A file that is no database
    // at all is the knowledge base's test.)
    void survivesItsFile_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<bool>("usable");
        QTest::addColumn<QString>("line");
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
            QVERIFY(cache.store(Model, texts(0, 200), vectors(0, 200)).result());
        }
        QSqlDatabase lock;
        if (situation == QLatin1String("damaged")) {
            // Keep the header, scribble over the pages behind it.
            onFile(m_path, [](QSqlQuery &q) { QVERIFY(q.exec("PRAGMA wal_checkpoint(TRUNCATE)")); });
            QFile file(m_path);
            QVERIFY(file.open(QIODevice::ReadWrite));
            QVERIFY(file.size() > 16384);
            file.seek(4096);
            file.write(QByteArray(file.size() - 4096, '\xff'));
        } else if (situation == QLatin1String("older")) {
            QVERIFY(QFile::remove(m_path));
            onFile(m_path, [](QSqlQuery &q) { QVERIFY(q.exec("CREATE TABLE vectors (text TEXT, v BLOB)")); });
        } else if (situation == QLatin1String("newer")) {
            onFile(m_path, [](QSqlQuery &q) { QVERIFY(q.exec("PRAGMA user_version = 99")); });
        } else if (situation == QLatin1String("locked")) {
            lock = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("lock"));
            lock.setDatabaseName(m_path);
            QVERIFY(lock.open());
            QSqlQuery q(lock);
            QVERIFY(q.exec("PRAGMA locking_mode = EXCLUSIVE"));
            QVERIFY(q.exec("BEGIN EXCLUSIVE"));
            QVERIFY(q.exec("DELETE FROM vectors WHERE rowid = 1"));
        } else if (situation == QLatin1String("blocked")) {
            QDir(TestEnvironment::home().filePath(QStringLiteral(".cache"))).removeRecursively();
            QVERIFY(QDir().mkpath(TestEnvironment::home().filePath(QStringLiteral(".cache"))));
            QFile blocker(TestEnvironment::home().filePath(QStringLiteral(".cache/Quillmoor")));
            QVERIFY(blocker.open(QIODevice::WriteOnly));
        }

        ConsoleCapture console;
        {
            VectorCache cache;
            const QList<VectorCache::Entry> old = cache.lookup(Model, texts(0, 2)).result();
            QCOMPARE(old, QList<VectorCache::Entry>(2)); // nothing of the old file is trusted or reachable
            QCOMPARE(cache.store(Model, texts(500, 2), vectors(500, 2)).result(), usable);
            const QList<VectorCache::Entry> fresh = cache.lookup(Model, texts(500, 2)).result();
            QCOMPARE(fresh[1], usable ? VectorCache::Entry(vectorFor(501)) : VectorCache::Entry());
        }
        if (line.isEmpty())
            QVERIFY(console.text().isEmpty());
        else
            QCOMPARE(console.lines().filter(line).size(), 1);

        if (situation == QLatin1String("newer"))
            onFile(m_path, [](QSqlQuery &q) {
                QVERIFY(q.exec("PRAGMA user_version") && q.next());
                QCOMPARE(q.value(0).toInt(), 99); // left to the version that wrote it
            });
        if (situation == QLatin1String("locked")) {
            lock.rollback();
            lock.close();
            lock = QSqlDatabase();
            QSqlDatabase::removeDatabase(QStringLiteral("lock"));
            VectorCache later;
            QCOMPARE(later.lookup(Model, texts(0, 1)).result().first(), VectorCache::Entry(vectorFor(0)));
        }
    }

    // Past its size the cache drops the least recently used vectors first, and vectors unused for long go
    // whatever the size.
    void prunesOldEntries()
    {
        const qint64 vectorBytes = 4 * 8;
        {
            VectorCache cache(VectorCache::defaultPath(), {vectorBytes * 25, 30});
            QVERIFY(cache.store(Model, texts(0, 10), vectors(0, 10)).result());
            QVERIFY(cache.store(Model, texts(10, 10), vectors(10, 10)).result());
        }
        // The first ten were last used long ago, the next ten yesterday.
        const qint64 today = QDateTime::currentSecsSinceEpoch() / 86400;
        onFile(m_path, [today](QSqlQuery &q) {
            QVERIFY(q.prepare("UPDATE vectors SET used = ? WHERE rowid <= 10"));
            q.addBindValue(today - 31);
            QVERIFY(q.exec());
            QVERIFY(q.prepare("UPDATE vectors SET used = ? WHERE rowid > 10"));
            q.addBindValue(today - 1);
            QVERIFY(q.exec());
        });
        VectorCache cache(VectorCache::defaultPath(), {vectorBytes * 25, 30});
        QCOMPARE(cache.lookup(Model, texts(0, 1)).result().first(), VectorCache::Entry());
        // Ten of yesterday are left; twenty more make 30 > 25, pruned to 22 by dropping eight of yesterday's.
        QVERIFY(cache.store(Model, texts(20, 20), vectors(20, 20)).result());
        QVERIFY(cache.store(Model, texts(40, 1), vectors(40, 1)).result());
        const QList<VectorCache::Entry> kept = cache.lookup(Model, texts(10, 31)).result();
        const qsizetype known =
            std::count_if(kept.cbegin(), kept.cend(), [](const auto &e) { return e.has_value(); });
        QCOMPARE(known, 23);
        QVERIFY(kept.last().has_value());   // the newest
        QVERIFY(!kept.first().has_value()); // yesterday's go before today's
    }
};

QUILLMOOR_TEST_MAIN(TestVectorCache)
#include "tst_vectorcache.moc"
