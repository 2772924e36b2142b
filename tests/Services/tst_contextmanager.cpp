#include "KnowledgeTestUtil.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QDir>
#include <QJsonArray>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <functional>

#include <qcoro/qcorotask.h>

using namespace KnowledgeTest;

class TestContextManager : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    TestProvider m_provider;
    std::shared_ptr<const InfomaniakAPI> m_api;

    QUrl file(const QString &name, const QByteArray &content)
    {
        return writeFile(m_dir.filePath(name), content);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_provider.listen());
        m_api = clientFor(m_provider);
    }
    void init()
    {
        m_provider.clearRequests();
        // Each test starts without kept vectors, so its requests are its own.
        QDir(TestEnvironment::home().filePath(QStringLiteral(".cache"))).removeRecursively();
    }

    void startsTheLogAndBecomesShared()
    {
        ContextManager manager(m_api);
        QCOMPARE(ContextManager::shared(), &manager);
        QCOMPARE(logMessages(), QStringList({QStringLiteral("ContextManager initialized")}));
        QVERIFY(manager.getKnowledgeOverview().isEmpty());
        QVERIFY(manager.isIdle());
    }

    void addingOnePathTwice()
    {
        ContextManager manager(m_api);
        QSignalSpy tracked(&manager, &ContextManager::trackedFilesChanged);
        const QUrl url = file(QStringLiteral("notizen.txt"), "Erster Absatz.\n\nZweiter Absatz.");
        manager.addFile(url);
        manager.addFile(QUrl::fromLocalFile(m_dir.path() + QStringLiteral("/notizen.txt")));
        QCOMPARE(manager.trackedFiles(), QList<QUrl>{url});
        QCOMPARE(tracked.size(), 1);
        QCOMPARE(manager.monitorCount(), 1);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: notizen.txt")), 1);
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("Erster Absatz.\n\nZweiter Absatz."));
        QCOMPARE(manager.globalChunks().size(), 1);
        QVERIFY(manager.getKnowledgeOverview().startsWith(
            QStringLiteral("Verfügbare Wissensdateien:\n- notizen.txt (1 Abschnitte. Beginn: ")));
    }

    void removingFiles()
    {
        ContextManager manager(m_api);
        const QUrl url = file(QStringLiteral("a.csv"), csv(3));
        const QUrl other = file(QStringLiteral("b.csv"), csv(2));
        manager.addFile(url);
        manager.addFile(other);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.globalChunks().size(), 5);

        // The same path in another spelling of the URL.
        manager.removeFile(QUrl(QStringLiteral("file://localhost") + url.path()));
        QCOMPARE(manager.trackedFiles(), QList<QUrl>{other});
        QCOMPARE(manager.globalChunks().size(), 2);
        QCOMPARE(manager.monitorCount(), 1);
        QVERIFY(!manager.fileTexts().contains(url));
        for (const QUrl &source : manager.chunkSourceMap())
            QCOMPARE(source, other);
        QCOMPARE(logMessages().last(), QStringLiteral("   → Remaining: 1 files, 2 chunks"));

        manager.removeFile(QUrl::fromLocalFile(QStringLiteral("/nowhere/never.txt")));
        QCOMPARE(logMessages().mid(logMessages().size() - 2),
                 QStringList({QStringLiteral("➖ removeFile: never.txt (path: /nowhere/never.txt)"),
                              QStringLiteral("   → Remaining: 1 files, 2 chunks")}));
        manager.removeFile(other);
        QVERIFY(manager.globalChunks().isEmpty());
        QCOMPARE(logMessages().last(), QStringLiteral("   → Remaining: 0 files, 0 chunks"));
        QVERIFY(manager.snapshot()->trackedFiles.isEmpty());
    }

    void overviewStates()
    {
        ContextManager manager(m_api);
        const QUrl table = file(QStringLiteral("Preise.csv"), "Artikel\tPreis\nBrot\t3\n");
        const QUrl empty = file(QStringLiteral("leer.txt"), "");
        manager.addFile(table);
        manager.addFile(empty);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.getKnowledgeOverview(),
                 QStringLiteral(
                     "Verfügbare Wissensdateien:\n- Preise.csv (Tabelle [] mit Spalten: Artikel, Preis)\n"
                     "- leer.txt [bereit]\n"));
        QCOMPARE(manager.snapshot()->overview, manager.getKnowledgeOverview());

        // A running file shows as such even with an older description.
        QSignalSpy processing(&manager, &ContextManager::processingFilesChanged);
        manager.processFile(table);
        QVERIFY(!manager.processingFiles().contains(table)); // the mark lands on the next turn
        // Woken by the mark itself: a poll can come only after this small file's whole run has ended.
        QVERIFY(processing.wait());
        QVERIFY(manager.processingFiles().contains(table));
        QVERIFY(manager.getKnowledgeOverview().contains(
            QStringLiteral("- Preise.csv [wird gerade verarbeitet]\n")));
        QVERIFY(manager.isProcessing());
        // Asked for again while its run is going: skipped, and processed once more when that run ends.
        manager.processFile(table);
        manager.processFile(table);
        QCOMPARE(countLog(QStringLiteral("⏸️ processFile skipped (already processing): Preise.csv")), 2);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: Preise.csv")), 3);
        QVERIFY(manager.processingFiles().isEmpty());
        QCOMPARE(processing.size(), 4);
    }

    void batchesOfFifty()
    {
        ContextManager manager(m_api);
        const QUrl url = file(QStringLiteral("gross.csv"), csv(120));
        manager.addFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        const auto requests = m_provider.requests("/embeddings");
        QCOMPARE(requests.size(), 3);
        QCOMPARE(requests[0].json().value("input").toArray().size(), 50);
        QCOMPARE(requests[2].json().value("input").toArray().size(), 20);
        QCOMPARE(requests[0].json().value("mode").toString(), QStringLiteral("index"));
        QCOMPARE(requests[0].json().value("model").toString(), QStringLiteral("bge_multilingual_gemma2"));
        const QStringList log = logMessages();
        const QStringList expected{
            QStringLiteral("➕ addFile: gross.csv (path: ") + url.path() + QStringLiteral(")"),
            QStringLiteral("👁️ Started monitoring: gross.csv"),
            QStringLiteral("🔄 processFile starting: gross.csv"),
        };
        QCOMPARE(log.mid(1, 3), expected);
        const qsizetype created = log.indexOf(QStringLiteral("📦 Created 120 chunks from gross.csv"));
        QVERIFY(created > 0);
        QCOMPARE(log.mid(created + 1),
                 QStringList({QStringLiteral("💾 0 of 120 vectors from the cache for gross.csv"),
                              QStringLiteral("🔢 Embedding batch 1/3..."),
                              QStringLiteral("🔢 Embedding batch 2/3..."),
                              QStringLiteral("🔢 Embedding batch 3/3..."),
                              QStringLiteral("✅ Processed: gross.csv (120 chunks, 120 total)")}));
        QVERIFY(log.contains(QStringLiteral("📄 Extracted %1 chars from gross.csv").arg(csv(120).size())));
        QCOMPARE(manager.fileChunks(url).size(), 120);
        QCOMPARE(manager.chunkSourceMap().size(), 120);
    }

    // Vectors outlive the knowledge base: processed again after a restart, an unchanged file sends nothing
    // and logs the same steps; a changed row sends its batch again, whole; a damaged cache file costs one
    // round of requests and no knowledge.
    void vectorsAreKeptAcrossRestarts()
    {
        const QUrl url = file(QStringLiteral("Lager.csv"), csv(120));
        const QString cachePath =
            TestEnvironment::home().filePath(QStringLiteral(".cache/Quillmoor/vectors.sqlite"));
        struct Step {
            const char *what;
            std::function<void()> before;
            QList<int> sentBatches; // the sizes of the requests made
            int fromCache;
        };
        const QList<Step> steps{
            {"first start", [] {}, {50, 50, 20}, 0},
            {"unchanged", [] {}, {}, 120},
            {"row 70 changed",
             [&] { writeFile(url.toLocalFile(), csv(120).replace("70\t210", "70\t999")); },
             {50},
             70},
            {"damaged cache file",
             [&] {
                 QFile cache(cachePath);
                 QVERIFY(cache.open(QIODevice::WriteOnly | QIODevice::Truncate));
                 cache.write(QByteArray(4096, 'x'));
             },
             {50, 50, 20},
             0},
            {"rebuilt", [] {}, {}, 120},
        };
        QList<DocumentChunk> previous;
        for (const Step &step : steps) {
            step.before();
            m_provider.clearRequests();
            ContextManager manager(m_api);
            manager.addFile(url);
            QCoro::waitFor(manager.waitUntilIdle());
            QList<int> sent;
            for (const TestProvider::Request &request : m_provider.requests("/embeddings"))
                sent.append(int(request.json().value("input").toArray().size()));
            QVERIFY2(sent == step.sentBatches, step.what);
            const QString cacheLine = QStringLiteral("💾 ") + QString::number(step.fromCache) +
                                      QStringLiteral(" of 120 vectors from the cache for Lager.csv");
            const QStringList log = logMessages();
            QVERIFY2(log.count(cacheLine) == 1, step.what);
            QCOMPARE(log.mid(log.indexOf(cacheLine) + 1),
                     QStringList({QStringLiteral("🔢 Embedding batch 1/3..."),
                                  QStringLiteral("🔢 Embedding batch 2/3..."),
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
        ContextManager manager(m_api);
        // Fewer vectors than texts: the pairing stops at the shorter list.
        m_provider.enqueueEmbeddings(TestProvider::Response::json(200, "{\"data\":[{\"embedding\":[1,0]}]}"));
        // Processed without a watch, so only these runs touch the file.
        const QUrl url = file(QStringLiteral("drei.csv"), csv(3));
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QCOMPARE(manager.chunkSourceMap().size(), 3);
        QCOMPARE(logMessages().last(), QStringLiteral("✅ Processed: drei.csv (3 chunks, 1 total)"));

        // A refused batch keeps the earlier chunks, stores the new text and description, and unmarks.
        m_provider.enqueueEmbeddings(TestProvider::Response::text(429, "slow down"));
        writeFile(url.toLocalFile(), csv(4));
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(
            logMessages().last(),
            QStringLiteral("❌ Error processing drei.csv: Embedding request failed (HTTP 429): slow down"));
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QCOMPARE(manager.fileTexts().value(url), QString::fromUtf8(csv(4)));
        QVERIFY(manager.processingFiles().isEmpty());

        // Zero vectors and vectors of another length are stored as they came.
        m_provider.enqueueEmbeddings(
            TestProvider::Response::json(200, "{\"data\":[{\"embedding\":[0,0]},{\"embedding\":[1]},{"
                                              "\"embedding\":[1,2,3]},{\"embedding\":[]}]}"));
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.fileChunks(url).size(), 4);
        QCOMPARE(manager.globalChunks().size(), 4);
        QCOMPARE(manager.snapshot()->globalNorms.first(), 0.0);
    }

    void filesWithoutTextOrChunks()
    {
        ContextManager manager(m_api);
        const QUrl blank = file(QStringLiteral("leer.txt"), "   \n\n  \n");
        const QUrl missing = QUrl::fromLocalFile(m_dir.filePath(QStringLiteral("fehlt.txt")));
        manager.addFile(blank);
        manager.addFile(missing);
        QCoro::waitFor(manager.waitUntilIdle());
        const QStringList log = logMessages();
        QVERIFY(log.contains(QStringLiteral("⚠️ No chunks created from leer.txt")));
        QVERIFY(log.contains(QStringLiteral("⚠️ No text extracted from fehlt.txt")));
        QVERIFY(log.contains(QStringLiteral("❌ Failed to open for monitoring: ") + missing.toLocalFile()));
        QVERIFY(manager.fileTexts().contains(blank));
        QCOMPARE(manager.trackedFiles().size(), 2);
        QVERIFY(m_provider.requests("/embeddings").isEmpty());
    }

    void twoCallsInOneTurnStartTwoRuns()
    {
        ContextManager manager(m_api);
        const QUrl url = file(QStringLiteral("doppelt.csv"), csv(2));
        manager.processFile(url);
        manager.processFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: doppelt.csv")), 2);
        QCOMPARE(countLog(QStringLiteral("✅ Processed: doppelt.csv (2 chunks, 2 total)")), 2);
    }
};

QUILLMOOR_TEST_MAIN(TestContextManager)
#include "tst_contextmanager.moc"
