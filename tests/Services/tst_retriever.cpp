#include "KnowledgeTestUtil.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "Services/Retriever.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QTemporaryDir>

#include <qcoro/qcorotask.h>

#include <cmath>
#include <vector>

using namespace KnowledgeTest;

namespace {

TestProvider::Response vectorAnswer(const QList<double> &vector)
{
    QJsonArray numbers;
    for (double x : vector)
        numbers.append(x);
    const QJsonObject body{
        {QStringLiteral("data"), QJsonArray{QJsonObject{{QStringLiteral("embedding"), numbers}}}}};
    return TestProvider::Response::json(200, QJsonDocument(body).toJson(QJsonDocument::Compact));
}

const QList<double> Query{1, 0, 0, 0, 0};
const QList<double> Exactly018{9, 49, 3, 3, 0}; // 9 / 50
const QList<double> Exactly015{3, 19, 5, 2, 1}; // 3 / 20
const QList<double> Score060{3, 4, 0, 0, 0};    // 3 / 5
const QList<double> Unrelated{0, 0, 0, 0, 1};

const QString Closing =
    QStringLiteral("\nBeantworte die Frage anhand der oben bereitgestellten Daten. Erfinde KEINE "
                   "Informationen, die nicht in den Daten stehen. Antworte präzise und "
                   "hilfreich.\n</instructions>");

} // namespace

class TestRetriever : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    TestProvider m_provider;
    std::shared_ptr<const InfomaniakAPI> m_api;
    std::unique_ptr<ContextManager> m_manager;

    // A tracked, processed file; its first chunk carries `vector` for the scoring.
    DocumentChunk track(const QString &name, const QByteArray &content,
                        const QList<double> &vector = Unrelated)
    {
        const QUrl url = writeFile(m_dir.filePath(name), content);
        m_manager->addFile(url);
        QCoro::waitFor(m_manager->waitUntilIdle());
        const QList<DocumentChunk> chunks = m_manager->fileChunks(url);
        return chunks.isEmpty() ? DocumentChunk{} : DocumentChunk{chunks.first().text, vector};
    }

    std::optional<QString> ask(const QString &question, const QList<DocumentChunk> &chunks,
                               const QList<double> &query = Query)
    {
        m_provider.enqueueEmbeddings(vectorAnswer(query));
        return QCoro::waitFor(
            Retriever::knowledgeSystemMessage(*m_api, question, chunks, QStringLiteral("Prompt")));
    }

    QStringList logSince(qsizetype start) { return logMessages().mid(start); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_provider.listen());
        m_api = clientFor(m_provider);
    }
    void init()
    {
        m_manager = std::make_unique<ContextManager>(m_api);
        m_provider.clearRequests();
    }
    void cleanup() { m_manager.reset(); }

    void similarityAndWords()
    {
        QCOMPARE(Retriever::cosineSimilarity(Query, Exactly018), 0.18);
        QCOMPARE(Retriever::cosineSimilarity(Query, {1, 0}), 0.0);
        QVERIFY(std::isnan(Retriever::cosineSimilarity(Query, {0, 0, 0, 0, 0})));
        QCOMPARE(Retriever::scoreAll(Query, {{"a", Score060}, {"b", {1}}, {"c", Exactly015}}),
                 QList<double>({0.6, 0.0, 0.15}));
        QCOMPARE(Retriever::words(QStringLiteral("Größe der ÜBERSICHT, 2024/ß x-y Ωμέγα")),
                 QSet<QString>({"größe", "der", "übersicht", "2024", "ωμέγα"}));
    }

    void noKnowledge()
    {
        QVERIFY(!ask(QStringLiteral("Hallo"), {}).has_value());
        QCOMPARE(logMessages().last(),
                 QStringLiteral("⚠️ RAG: No external chunks available (globalChunks is empty)"));
        QVERIFY(m_provider.requests("/embeddings").isEmpty());
    }

    void thresholdsAreStrict()
    {
        const DocumentChunk a = track(QStringLiteral("a.txt"), "Alpha Inhalt", Exactly018);
        const DocumentChunk b = track(QStringLiteral("b.txt"), "Beta Inhalt", Exactly015);
        const qsizetype start = logMessages().size();
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        QVERIFY(!ask(QStringLiteral("Was gibt es?"), {a, b}).has_value());
        QCOMPARE(logSince(start),
                 QStringList({QStringLiteral("🔍 RAG: Query='Was gibt es?', 2 chunks available"),
                              QStringLiteral("🔍 RAG: topScore=0.180, semantic matches=0, "
                                             "filename matches=0")}));
        QCOMPARE(m_provider.requests("/embeddings").last().json().value("mode").toString(),
                 QStringLiteral("query"));

        const DocumentChunk c = track(QStringLiteral("c.txt"), "Gamma Inhalt", Score060);
        const qsizetype next = logMessages().size();
        const auto message = ask(QStringLiteral("Was gibt es?"), {a, b, c});
        QLocale::setDefault(QLocale::c());
        QVERIFY(message.has_value());
        const QStringList log = logSince(next);
        QCOMPARE(log.mid(1, 3), QStringList({QStringLiteral("🔍 RAG: topScore=0.600, semantic matches=2, "
                                                            "filename matches=0"),
                                             QStringLiteral(" - [0.600] [c] Gamma Inhalt..."),
                                             QStringLiteral(" - [0.180] [a] Alpha Inhalt...")}));
        QVERIFY(message->contains(QStringLiteral("--- c.txt ---\nGamma Inhalt\n\n")));
        QVERIFY(message->contains(QStringLiteral("--- a.txt ---\nAlpha Inhalt\n\n")));
        QVERIFY(!message->contains(QStringLiteral("b.txt ---")));
    }

    void knowledgeFormCharacterForCharacter()
    {
        const DocumentChunk chunk = track(QStringLiteral("notiz.txt"), "Die Miete ist 900.", Score060);
        const auto message = ask(QStringLiteral("Miete?"), {chunk});
        QCOMPARE(*message,
                 QStringLiteral("<database_schema>\n") + m_manager->getKnowledgeOverview() +
                     QStringLiteral("\n</database_schema>\n\n<relevant_data>\n\n\n--- notiz.txt ---\n"
                                    "Die Miete ist 900.\n\n\n</relevant_data>\n\n<instructions>\nPrompt") +
                     Closing);
        QVERIFY(logMessages().contains(QStringLiteral("📄 Injected full text of notiz.txt (18 chars)")));
    }

    void fileNameRules()
    {
        const DocumentChunk chunk = track(QStringLiteral("Jahresbericht.txt"), "Umsatz stieg.");
        track(QStringLiteral("Preise.xlsx"), "kein Arbeitsbuch");
        track(QStringLiteral("scan.pdf"), "kein PDF");
        track(QStringLiteral("x.txt"), "ein Buchstabe");
        const auto names = [this, &chunk](const QString &question) {
            const qsizetype start = logMessages().size();
            ask(question, {chunk});
            QStringList matched;
            for (const QString &line : logSince(start)) {
                if (line.startsWith(QStringLiteral("📎 Filename match: '")))
                    matched.append(line.section(QLatin1Char('\''), 1, 1));
            }
            return matched;
        };
        QCOMPARE(names(QStringLiteral("Was steht im JAHRESBERICHT?")), QStringList{"Jahresbericht.txt"});
        QCOMPARE(names(QStringLiteral("Die Jahresberichte bitte")), QStringList());
        QCOMPARE(names(QStringLiteral("Was sagt die eXcel-Tabelle? x")), QStringList{"Preise.xlsx"});
        QCOMPARE(names(QStringLiteral("Alle PDFs")), QStringList{"scan.pdf"});
        const auto message = ask(QStringLiteral("Jahresbericht"), {chunk});
        QVERIFY(message->contains(QStringLiteral("--- Jahresbericht.txt ---\nUmsatz stieg.\n\n")));
    }

    void budgetAndFallback()
    {
        const DocumentChunk big = track(QStringLiteral("gross.txt"), QByteArray("a ").repeated(15000));
        track(QStringLiteral("klein.txt"), "klein");
        const qsizetype start = logMessages().size();
        const auto message = ask(QStringLiteral("gross und klein"), {big});
        const QString kept = QStringLiteral("a ").repeated(10000);
        QVERIFY(
            message->contains(QStringLiteral("---\n") + kept + QStringLiteral("\n[... gekürzt ...]\n\n")));
        QCOMPARE(logSince(start).mid(4),
                 QStringList({QStringLiteral("📄 Injected full text of gross.txt (20018 chars)"),
                              QStringLiteral(" ⚠️ Context limit reached, skipping klein.txt")}));

        // A file without text yet: the semantic matches stand in for it.
        const DocumentChunk other = track(QStringLiteral("anders.txt"), "Anderer Text", Score060);
        track(QStringLiteral("leer.txt"), "");
        const auto fallback = ask(QStringLiteral("leer"), {other});
        QVERIFY(fallback->contains(
            QStringLiteral("--- anders.txt ---\nAnderer Text\n\n[anders] Anderer Text\n\n")));
    }

    void tenBestAndStableOrder()
    {
        QList<DocumentChunk> chunks;
        for (int i = 0; i < 11; ++i)
            chunks.append({QStringLiteral("Stück %1").arg(i), Score060});
        const qsizetype start = logMessages().size();
        QVERIFY(!ask(QStringLiteral("Frage"), chunks).has_value()); // no chunk leads to a file
        const QStringList log = logSince(start);
        QCOMPARE(log[1], QStringLiteral("🔍 RAG: topScore=0.600, semantic matches=10, filename matches=0"));
        for (int i = 0; i < 10; ++i)
            QCOMPARE(log[2 + i], QStringLiteral(" - [0.600] Stück %1...").arg(i));
        QCOMPARE(log.size(), 12);
    }

    void badVectorsAndFailures()
    {
        const DocumentChunk chunk = track(QStringLiteral("v.txt"), "Vektoren");
        const QList<DocumentChunk> odd{{QStringLiteral("null"), {0, 0, 0, 0, 0}},
                                       {QStringLiteral("kurz"), {1, 0}}};
        const qsizetype start = logMessages().size();
        QVERIFY(!ask(QStringLiteral("Frage"), odd).has_value());
        QCOMPARE(logSince(start).last(),
                 QStringLiteral("🔍 RAG: topScore=0.000, semantic matches=0, filename matches=0"));

        m_provider.enqueueEmbeddings(TestProvider::Response::text(500, "kaputt"));
        QVERIFY(!QCoro::waitFor(Retriever::knowledgeSystemMessage(*m_api, QStringLiteral("v"), {chunk},
                                                                  QStringLiteral("P")))
                     .has_value());
        QCOMPARE(logMessages().last(),
                 QStringLiteral("❌ RAG Error: Error Domain=InfomaniakAPI Code=500 \"Embedding "
                                "request failed (HTTP 500): kaputt\""));

        m_provider.enqueueEmbeddings(TestProvider::Response::json(200, "{\"data\":[]}"));
        const qsizetype before = logMessages().size();
        QVERIFY(!QCoro::waitFor(Retriever::knowledgeSystemMessage(*m_api, QStringLiteral("v.txt"), {chunk},
                                                                  QStringLiteral("P")))
                     .has_value());
        QCOMPARE(logSince(before).size(), 2); // the query line and the file-name match, nothing after
    }

    void tenTurnsWhileFilesChange()
    {
        const QString path = m_dir.filePath(QStringLiteral("lebendig.txt"));
        track(QStringLiteral("lebendig.txt"), "Fassung 0 lebendig");
        std::vector<QCoro::Task<std::optional<QString>>> turns;
        for (int i = 0; i < 10; ++i)
            turns.push_back(Retriever::knowledgeSystemMessage(
                *m_api, QStringLiteral("lebendig"), m_manager->globalChunks(), QStringLiteral("P")));
        for (int i = 1; i <= 5; ++i) {
            writeFile(path, "Fassung " + QByteArray::number(i) + " lebendig");
            m_manager->processFile(QUrl::fromLocalFile(path));
            QTest::qWait(20);
        }
        for (auto &turn : turns) {
            const auto message = QCoro::waitFor(turn);
            QVERIFY(message.has_value());
            QVERIFY(message->contains(QStringLiteral("--- lebendig.txt ---\nFassung ")));
        }
        QCoro::waitFor(m_manager->waitUntilIdle());
    }
};

QUILLMOOR_TEST_MAIN(TestRetriever)
#include "tst_retriever.moc"
