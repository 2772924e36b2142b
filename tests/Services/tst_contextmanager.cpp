#include "KnowledgeTestUtil.h"

#include <QJsonArray>
#include <QSignalSpy>

using namespace KnowledgeTest;

class TestContextManager : public QObject, Fixture {
    Q_OBJECT

private slots:
    void init()
    {
        provider.clearRequests();
        // Each test starts without kept vectors, so its requests are its own.
        QDir(TestEnvironment::home().filePath(QStringLiteral(".cache"))).removeRecursively();
    }

    // Files are known by their path, however the URL spelt it: tracked, watched and processed once, and
    // removed with all they brought. A table shows its description, a file without chunks is ready. Two calls
    // in one turn both start a run, since the mark lands on the next turn; a running file shows as such even
    // with an older description, and asked for again while its run is going it is skipped, then processed
    // once more when that run ends. A later run replaces the earlier one's chunks.
    void trackedByPath()
    {
        ContextManager manager(api);
        QCOMPARE(ContextManager::shared(), &manager);
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
        QCOMPARE(
            manager.getKnowledgeOverview(),
            QStringLiteral("Verfügbare Wissensdateien:\n- a.csv (Tabelle [] mit Spalten: Artikel, Preis)\n"
                           "- notizen.txt (1 Abschnitte. Beginn: Erster Absatz. Zweiter Absatz....)\n"
                           "- leer.txt [bereit]\n"));
        QCOMPARE(manager.snapshot()->overview, manager.getKnowledgeOverview());
        QCOMPARE(countLog(QStringLiteral("⚠️ No chunks created from leer.txt")), 1);
        QVERIFY(manager.fileTexts().contains(blank));
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
        manager.processFile(url);
        manager.processFile(url);
        QCOMPARE(countLog(QStringLiteral("⏸️ processFile skipped (already processing): a.csv")), 2);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: notizen.txt")), 3);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: a.csv")), 3);
        QVERIFY(manager.processingFiles().isEmpty());
        QCOMPARE(manager.globalChunks().size(), 4);

        manager.removeFile(spelt);
        QCOMPARE(manager.trackedFiles(), QList<QUrl>({other, blank}));
        QCOMPARE(manager.globalChunks().size(), 1);
        QCOMPARE(manager.monitorCount(), 2);
        QVERIFY(!manager.fileTexts().contains(url));
        for (const QUrl &source : manager.chunkSourceMap())
            QCOMPARE(source, other);
        manager.removeFile(QUrl::fromLocalFile(QStringLiteral("/nowhere/never.txt")));
        QCOMPARE(logMessages().mid(logMessages().size() - 2),
                 QStringList({QStringLiteral("➖ removeFile: never.txt (path: /nowhere/never.txt)"),
                              QStringLiteral("   → Remaining: 2 files, 1 chunks")}));
        manager.removeFile(other);
        manager.removeFile(blank);
        QVERIFY(manager.globalChunks().isEmpty());
        QVERIFY(manager.snapshot()->trackedFiles.isEmpty());
    }

    // Chunks go to the server fifty at a time, and their vectors outlive the knowledge base: after a restart
    // an unchanged file sends nothing and logs the same steps; a changed row sends its batch again, whole;
    // a damaged cache file costs one round of requests and no knowledge.
    void batchesOfFiftyKeptAcrossRestarts()
    {
        const QByteArray changed = csv(120).replace("70\t210", "70\t999");
        struct Step {
            const char *what;
            QByteArray content;
            bool damageCache;
            QList<int> sentBatches; // the sizes of the requests made
            int fromCache;
        };
        const QList<Step> steps{
            {"first start", csv(120), false, {50, 50, 20}, 0},
            {"unchanged", csv(120), false, {}, 120},
            {"row 70 changed", changed, false, {50}, 70},
            {"damaged cache file", changed, true, {50, 50, 20}, 0},
            {"rebuilt", changed, false, {}, 120},
        };
        QList<DocumentChunk> previous;
        for (const Step &step : steps) {
            if (step.damageCache)
                writeFile(QStringLiteral(".cache/Quillmoor/vectors.sqlite"), QByteArray(4096, 'x'));
            provider.clearRequests();
            ContextManager manager(api);
            const QUrl url = track(manager, QStringLiteral("Lager.csv"), step.content);
            QList<int> sent;
            for (const TestProvider::Request &request : provider.requests("/embeddings")) {
                sent.append(int(request.json().value("input").toArray().size()));
                QCOMPARE(request.json().value("mode").toString(), QStringLiteral("index"));
            }
            QVERIFY2(sent == step.sentBatches, step.what);
            QCOMPARE(
                logMessages(),
                QStringList(
                    {QStringLiteral("ContextManager initialized"),
                     QStringLiteral("➕ addFile: Lager.csv (path: ") + url.path() + ')',
                     QStringLiteral("👁️ Started monitoring: Lager.csv"),
                     QStringLiteral("🔄 processFile starting: Lager.csv"),
                     QStringLiteral("📄 Extracted %1 chars from Lager.csv").arg(csv(120).size()),
                     QStringLiteral("📄 First 200 chars: Artikel\tPreis"),
                     QStringLiteral(
                         "📦 rowLevelChunk: 120 chunks, schema: Tabelle [] mit Spalten: Artikel, Preis"),
                     QStringLiteral("📦 Created 120 chunks from Lager.csv"),
                     QStringLiteral("💾 %1 of 120 vectors from the cache for Lager.csv").arg(step.fromCache),
                     QStringLiteral("🔢 Embedding batch 1/3..."), QStringLiteral("🔢 Embedding batch 2/3..."),
                     QStringLiteral("🔢 Embedding batch 3/3..."),
                     QStringLiteral("✅ Processed: Lager.csv (120 chunks, 120 total)")}));
            // The same vectors as the server gave for the same texts; the changed row alone differs.
            const QList<DocumentChunk> chunks = manager.fileChunks(url);
            QCOMPARE(chunks.size(), 120);
            for (int i = 0; i < previous.size(); ++i)
                QVERIFY2((chunks[i] == previous[i]) == (chunks[i].text == previous[i].text), step.what);
            previous = chunks;
        }
    }

    void badEmbeddingAnswers()
    {
        ContextManager manager(api);
        // Fewer vectors than texts: the pairing stops at the shorter list.
        provider.enqueueEmbeddings(TestProvider::Response::json(200, "{\"data\":[{\"embedding\":[1,0]}]}"));
        // Processed without a watch, so only these runs touch the file.
        const QUrl url = writeFile(QStringLiteral("drei.csv"), csv(3));
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QCOMPARE(manager.chunkSourceMap().size(), 3);
        QCOMPARE(logMessages().last(), QStringLiteral("✅ Processed: drei.csv (3 chunks, 1 total)"));

        // A refused batch keeps the earlier chunks, stores the new text and description, and unmarks.
        provider.enqueueEmbeddings(TestProvider::Response::text(429, "slow down"));
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
            TestProvider::Response::json(200, "{\"data\":[{\"embedding\":[0,0]},{\"embedding\":[1]},{"
                                              "\"embedding\":[1,2,3]},{\"embedding\":[]}]}"));
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.globalChunks().size(), 4);
        QCOMPARE(manager.snapshot()->globalNorms.first(), 0.0);
    }
};

QUILLMOOR_TEST_MAIN(TestContextManager)
#include "tst_contextmanager.moc"
