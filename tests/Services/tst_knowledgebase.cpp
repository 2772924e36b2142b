#include "CaseFiles.h"
#include "KnowledgeTestUtil.h"
#include "Services/VectorCache.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <cstdio>
#include <functional>

using namespace KnowledgeTest;

namespace {
int inotifyWatches()
{
    int count = 0;
    const QDir fdinfo(QStringLiteral("/proc/self/fdinfo"));
    for (const QString &entry : fdinfo.entryList(QDir::Files)) {
        QFile file(fdinfo.filePath(entry));
        if (file.open(QIODevice::ReadOnly))
            count += int(file.readAll().count("inotify wd:"));
    }
    return count;
}

// How editors save: a new file renamed over the old one, atomically, or after removing the old one.
void replaceByRename(const QUrl &url, const QByteArray &content, bool atomic = false)
{
    const QString temporary = writeFile(url.fileName() + QStringLiteral(".tmp"), content).toLocalFile();
    if (!atomic)
        QFile::remove(url.toLocalFile());
    QCOMPARE(std::rename(QFile::encodeName(temporary).constData(),
                         QFile::encodeName(url.toLocalFile()).constData()),
             0);
}

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

class TestKnowledgeBase : public QObject, Fixture {
    Q_OBJECT

private slots:
    void init()
    {
        provider.clearRequests();
        // Each test starts without kept vectors, so its requests are its own.
        QDir(TestEnvironment::home().filePath(QStringLiteral(".cache"))).removeRecursively();
    }

    // Files are known by their path, however the URL spelt it: tracked, watched and processed once, and
    // removed with all they brought. Two calls in one turn both start a run, since the mark lands on the next
    // turn; a running file shows as such even with an older description.
    void trackedByPath()
    {
        ContextManager manager(api);
        QSignalSpy tracked(&manager, &ContextManager::trackedFilesChanged);
        const QUrl url = writeFile(QStringLiteral("a.csv"), csv(3));
        const QUrl spelt(QStringLiteral("file://localhost") + url.path());
        const QUrl other = writeFile(QStringLiteral("notizen.txt"), "Erster Absatz.\n\nZweiter Absatz.");
        const QUrl blank = writeFile(QStringLiteral("leer.txt"), "   \n\n  \n");
        for (const QUrl &file : {url, spelt, other, blank})
            manager.addFile(file);
        QCOMPARE(manager.trackedFiles(), QList<QUrl>({url, other, blank}));
        QCOMPARE(tracked.size(), 3);
        QCOMPARE(manager.monitorCount(), 3);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: a.csv")), 1);
        QCOMPARE(CaseFiles::lines(manager.getKnowledgeOverview()),
                 CaseFiles::expected(QStringLiteral("knowledgebase/overview")));
        QCOMPARE(countLog(QStringLiteral("⚠️ No chunks created from leer.txt")), 1);
        QCOMPARE(provider.requests("/embeddings").size(), 2);

        manager.processFile(other);
        manager.processFile(other);
        QSignalSpy processing(&manager, &ContextManager::processingFilesChanged);
        manager.processFile(url);
        QVERIFY(!manager.processingFiles().contains(url));
        // Woken by the mark itself: a poll can come only after this small file's whole run has ended.
        QVERIFY(processing.wait());
        QVERIFY(
            manager.getKnowledgeOverview().contains(QStringLiteral("- a.csv [wird gerade verarbeitet]\n")));
        QVERIFY(manager.isProcessing());
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: notizen.txt")), 3);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: a.csv")), 2);
        QCOMPARE(manager.globalChunks().size(), 4);

        manager.removeFile(spelt);
        QCOMPARE(manager.trackedFiles(), QList<QUrl>({other, blank}));
        QCOMPARE(manager.globalChunks().size(), 1);
        QCOMPARE(manager.monitorCount(), 2);
        QVERIFY(!manager.fileTexts().contains(url));
        for (const QUrl &source : manager.chunkSourceMap())
            QCOMPARE(source, other);
        manager.removeFile(QUrl::fromLocalFile(QStringLiteral("/nowhere/never.txt")));
        QCOMPARE(logMessages().last(), QStringLiteral("   → Remaining: 2 files, 1 chunks"));
        QCOMPARE(manager.snapshot()->trackedFiles, manager.trackedFiles());
    }

    // Chunks go to the server fifty at a time, and their vectors outlive a restart: an unchanged file sends
    // nothing, a changed row its batch, a damaged cache file one round of requests. The restarts are in
    // tests/data/knowledgebase, in the order of their names: whether row 70 is changed, whether the cache
    // file is damaged first, the sizes of the requests made and the vectors taken from the cache.
    void batchesOfFiftyKeptAcrossRestarts()
    {
        QList<DocumentChunk> previous;
        for (const auto &[what, step] : CaseFiles::cases(QStringLiteral("knowledgebase"))) {
            if (step.at(1).toBool())
                writeFile(QStringLiteral(".cache/Quillmoor/vectors.sqlite"), QByteArray(4096, 'x'));
            provider.clearRequests();
            ContextManager manager(api);
            const QByteArray content = csv(120);
            const QUrl url =
                track(manager, QStringLiteral("Lager.csv"),
                      step.at(0).toBool() ? QByteArray(content).replace("70\t210", "70\t999") : content);
            QJsonArray sent;
            for (const TestProvider::Request &request : provider.requests("/embeddings")) {
                sent.append(request.json().value("input").toArray().size());
                QCOMPARE(request.json().value("mode").toString(), QStringLiteral("index"));
            }
            QVERIFY2(sent == step.at(2).toArray(), what.constData());
            QCOMPARE(logMessages().filter(QStringLiteral(" vectors from the cache for ")),
                     QStringList{QStringLiteral("💾 %1 of 120 vectors from the cache for Lager.csv")
                                     .arg(step.at(3).toInt())});
            QCOMPARE(countLog(QStringLiteral("🔢 Embedding batch 3/3...")), 1); // counted whether sent or not
            // The same vectors as the server gave for the same texts; the changed row alone differs.
            const QList<DocumentChunk> chunks = manager.fileChunks(url);
            QCOMPARE(chunks.size(), 120);
            for (int i = 0; i < previous.size(); ++i)
                QVERIFY2((chunks[i] == previous[i]) == (chunks[i].text == previous[i].text),
                         what.constData());
            previous = chunks;
        }
        QCOMPARE(previous.size(), 120);
    }

    void badEmbeddingAnswers()
    {
        ContextManager manager(api);
        // Fewer vectors than texts: the pairing stops at the shorter list. No watch: only these runs count.
        provider.enqueueEmbeddings(TestProvider::Response::body(200, "{\"data\":[{\"embedding\":[1,0]}]}"));
        const QUrl url = writeFile(QStringLiteral("drei.csv"), csv(3));
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QCOMPARE(manager.chunkSourceMap().size(), 3);
        QCOMPARE(logMessages().last(), QStringLiteral("✅ Processed: drei.csv (3 chunks, 1 total)"));

        // A refused batch keeps the earlier chunks, stores the new text and description, and unmarks.
        provider.enqueueEmbeddings(TestProvider::Response::body(429, "slow down"));
        writeFile(url.fileName(), csv(4));
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(
            logMessages().last(),
            QStringLiteral("❌ Error processing drei.csv: Embedding request failed (HTTP 429): slow down"));
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QCOMPARE(manager.fileTexts().value(url), QString::fromUtf8(csv(4)));
        QVERIFY(manager.processingFiles().isEmpty());

        // Zero vectors and vectors of another length are stored as they came.
        provider.enqueueEmbeddings(
            TestProvider::Response::body(200, "{\"data\":[{\"embedding\":[0,0]},{\"embedding\":[1]},{"
                                              "\"embedding\":[1,2,3]},{\"embedding\":[]}]}"));
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.globalChunks().size(), 4);
        QCOMPARE(manager.snapshot()->globalNorms.first(), 0.0);
    }

    // Saved by renaming a new file over the old one while another program holds the old one open (the
    // kernel reports no deletion then); afterwards a write in place lands, attribute changes are no events.
    void savedByRenameWhileHeldOpen()
    {
        ContextManager manager(api);
        const QUrl url = track(manager, QStringLiteral("offen.txt"), "erste Fassung");
        QFile holder(url.toLocalFile());
        QVERIFY(holder.open(QIODevice::ReadOnly));
        replaceByRename(url, "zweite Fassung", true);
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("zweite Fassung"));
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.monitorCount(), 1);

        QVERIFY(QFile::setPermissions(url.toLocalFile(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
        writeFile(QStringLiteral("offen.txt"), "dritte Fassung");
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("dritte Fassung"));
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: 2)] for offen.txt")), 1);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: offen.txt")), 3);
    }

    // A save or a deletion during the file's run is processed once more when it ends. A deleted file stays
    // tracked with its last text and chunks, unwatched.
    void changes_data()
    {
        QTest::addColumn<bool>("deleted");
        QTest::addRow("saved while processing") << false;
        QTest::addRow("deleted while processing") << true;
    }
    void changes()
    {
        QFETCH(bool, deleted);
        ContextManager manager(api);
        const QString name = QString::fromLatin1(QTest::currentDataTag()) + QStringLiteral(".txt");
        const QUrl url = writeFile(name, "vorher");
        provider.setDefaultDelayMs(1500);
        manager.addFile(url);
        QTRY_COMPARE(countLog(QStringLiteral("🔢 Embedding batch 1/1...")), 1);
        if (deleted)
            QVERIFY(QFile::remove(url.toLocalFile()));
        else
            writeFile(name, "nachher");
        QTRY_COMPARE(countLog(QStringLiteral("⏸️ processFile skipped (already processing): ") + name), 1);
        if (deleted)
            QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for ") + name), 1);
        provider.setDefaultDelayMs(0);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: ") + name), 2);
        QCOMPARE(countLog(QStringLiteral("⚠️ No text extracted from ") + name), int(deleted));
        const QString last = deleted ? QStringLiteral("vorher") : QStringLiteral("nachher");
        QCOMPARE(manager.fileTexts().value(url), last);
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QVERIFY(manager.fileChunks(url).first().text.endsWith(last));
        QCOMPARE(manager.trackedFiles(), QList<QUrl>{url});
        QCOMPARE(manager.monitorCount(), int(!deleted));
    }

    // Two tracked paths that lead to one file share the kernel's watch: each hears the file's changes, and
    // removing one leaves the other watched. A removed file stays removed, also when it was just replaced.
    void pathsToTheSameFile()
    {
        ContextManager manager(api);
        const QUrl target = track(manager, QStringLiteral("ziel.txt"), "eins");
        const QUrl alias =
            QUrl::fromLocalFile(TestEnvironment::home().filePath(QStringLiteral("verweis.txt")));
        QVERIFY(QFile::link(target.toLocalFile(), alias.toLocalFile()));
        manager.addFile(alias);
        QCoro::waitFor(manager.waitUntilIdle());

        writeFile(QStringLiteral("ziel.txt"), "zwei");
        QTRY_COMPARE(manager.fileTexts().value(target), QStringLiteral("zwei"));
        QTRY_COMPARE(manager.fileTexts().value(alias), QStringLiteral("zwei"));
        QCoro::waitFor(manager.waitUntilIdle());

        const int before = inotifyWatches();
        manager.removeFile(alias);
        QCOMPARE(inotifyWatches(), before);
        writeFile(QStringLiteral("ziel.txt"), "drei");
        QTRY_COMPARE(manager.fileTexts().value(target), QStringLiteral("drei"));
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: 2)] for verweis.txt")), 1);
        // A reaction still waiting when the file is removed does nothing: no new watch, no run.
        replaceByRename(target, "vier");
        QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for ziel.txt")), 1);
        manager.removeFile(target);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(inotifyWatches(), before - 1);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: ziel.txt")), 3);
    }

    void replacedFiftyTimes()
    {
        ContextManager manager(api);
        const int before = inotifyWatches();
        const QUrl url = writeFile(QStringLiteral("hektisch.txt"), "Fassung 0");
        manager.addFile(url);
        for (int i = 1; i <= 50; ++i) {
            replaceByRename(url, "Fassung " + QByteArray::number(i));
            QTest::qWait(100);
        }
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.monitorCount(), 1);
        QCOMPARE(inotifyWatches(), before + 1);
        writeFile(QStringLiteral("hektisch.txt"), "Fassung final");
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("Fassung final"));
    }

    // The vector cache reads back bit for bit, for the same model and text only, and never fails its caller:
    // a damaged or outdated file is replaced, a locked or newer one left alone.
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

    // Past its size the cache drops the least recently used vectors; long unused ones go whatever the size.
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

QUILLMOOR_TEST_MAIN(TestKnowledgeBase)
#include "tst_knowledgebase.moc"
