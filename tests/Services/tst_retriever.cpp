#include "KnowledgeTestUtil.h"
#include "Services/Retriever.h"

using namespace KnowledgeTest;

namespace {

const QByteArray QueryAnswer = "{\"data\":[{\"embedding\":[1,0,0,0,0]}]}";
const QList<double> Exactly018{9, 49, 3, 3, 0}; // 9 / 50
const QList<double> Exactly015{3, 19, 5, 2, 1}; // 3 / 20
const QList<double> Score060{3, 4, 0, 0, 0};    // 3 / 5
const QList<double> Unrelated{0, 0, 0, 0, 1};

} // namespace

class TestRetriever : public QObject, Fixture {
    Q_OBJECT

    std::unique_ptr<ContextManager> m_manager;

    // A tracked, processed file; its first chunk carries `vector` for the scoring.
    DocumentChunk track(const QString &name, const QByteArray &content,
                        const QList<double> &vector = Unrelated)
    {
        const QList<DocumentChunk> chunks =
            m_manager->fileChunks(KnowledgeTest::track(*m_manager, name, content));
        return chunks.isEmpty() ? DocumentChunk{} : DocumentChunk{chunks.first().text, vector};
    }

    // The knowledge message for `question`, and the log lines its retrieval wrote.
    std::optional<QString>
    ask(const QString &question, const QList<DocumentChunk> &chunks, QStringList *log = nullptr,
        const TestProvider::Response &answer = TestProvider::Response::json(200, QueryAnswer))
    {
        provider.enqueueEmbeddings(answer);
        const qsizetype start = logMessages().size();
        const auto message = QCoro::waitFor(
            Retriever::knowledgeSystemMessage(*api, question, chunks, QStringLiteral("Prompt")));
        if (log)
            *log = logMessages().mid(start);
        return message;
    }

private slots:
    void init()
    {
        m_manager = std::make_unique<ContextManager>(api);
        provider.clearRequests();
    }
    void cleanup() { m_manager.reset(); }

    // Both thresholds are strict: a top score of exactly 0.18 brings no matches, and above it a score of
    // exactly 0.15 is no match. At most ten matches, equal scores in their order; vectors of no length or
    // of another length score nothing. Chunks that lead to no file give no knowledge.
    void scoring_data()
    {
        QTest::addColumn<QList<QList<double>>>("vectors");
        QTest::addColumn<QStringList>("log");
        QTest::addRow("top score exactly 0.18")
            << QList<QList<double>>{Exactly018, Exactly015}
            << QStringList{"🔍 RAG: topScore=0.180, semantic matches=0, filename matches=0"};
        QTest::addRow("a match exactly 0.15")
            << QList<QList<double>>{Exactly018, Exactly015, Score060}
            << QStringList{"🔍 RAG: topScore=0.600, semantic matches=2, filename matches=0",
                           " - [0.600] Stück 2...", " - [0.180] Stück 0..."};
        QStringList tenBest{"🔍 RAG: topScore=0.600, semantic matches=10, filename matches=0"};
        for (int i = 0; i < 10; ++i)
            tenBest.append(QStringLiteral(" - [0.600] Stück %1...").arg(i));
        QTest::addRow("ten best of eleven") << QList<QList<double>>(11, Score060) << tenBest;
        QTest::addRow("no length, another length")
            << QList<QList<double>>{{0, 0, 0, 0, 0}, {1, 0}, {}}
            << QStringList{"🔍 RAG: topScore=0.000, semantic matches=0, filename matches=0"};
    }
    void scoring()
    {
        QFETCH(QList<QList<double>>, vectors);
        QFETCH(QStringList, log);
        QList<DocumentChunk> chunks;
        for (const QList<double> &vector : vectors)
            chunks.append({QStringLiteral("Stück %1").arg(chunks.size()), vector});
        QStringList written;
        QVERIFY(!ask(QStringLiteral("Was gibt es?"), chunks, &written).has_value());
        QCOMPARE(written,
                 QStringList{
                     QStringLiteral("🔍 RAG: Query='Was gibt es?', %1 chunks available").arg(chunks.size())} +
                     log);
    }

    void knowledgeFormCharacterForCharacter()
    {
        const DocumentChunk chunk = track(QStringLiteral("notiz.txt"), "Die Miete ist 900.", Score060);
        QCOMPARE(*ask(QStringLiteral("Miete?"), {chunk}),
                 QStringLiteral("<database_schema>\n") + m_manager->getKnowledgeOverview() +
                     QStringLiteral("\n</database_schema>\n\n<relevant_data>\n\n\n--- notiz.txt ---\n"
                                    "Die Miete ist 900.\n\n\n</relevant_data>\n\n<instructions>\nPrompt\n"
                                    "Beantworte die Frage anhand der oben bereitgestellten Daten. Erfinde "
                                    "KEINE Informationen, die nicht in den Daten stehen. Antworte präzise "
                                    "und hilfreich.\n</instructions>"));
    }

    void fileNameRules()
    {
        const DocumentChunk chunk = track(QStringLiteral("Jahresbericht.txt"), "Umsatz stieg.");
        track(QStringLiteral("Preise.xlsx"), "kein Arbeitsbuch");
        track(QStringLiteral("scan.pdf"), "kein PDF");
        track(QStringLiteral("x.txt"), "ein Buchstabe");
        QCOMPARE(Retriever::words(QStringLiteral("Größe der ÜBERSICHT, 2024/ß x-y Ωμέγα")),
                 QSet<QString>({"größe", "der", "übersicht", "2024", "ωμέγα"}));
        const auto names = [this, &chunk](const QString &question) {
            QStringList log, matched;
            ask(question, {chunk}, &log);
            for (const QString &line : std::as_const(log)) {
                if (line.startsWith(QStringLiteral("📎 Filename match: '")))
                    matched.append(line.section(QLatin1Char('\''), 1, 1));
            }
            return matched;
        };
        QCOMPARE(names(QStringLiteral("Was steht im JAHRESBERICHT?")), QStringList{"Jahresbericht.txt"});
        QCOMPARE(names(QStringLiteral("Die Jahresberichte bitte")), QStringList());
        QCOMPARE(names(QStringLiteral("Was sagt die eXcel-Tabelle? x")), QStringList{"Preise.xlsx"});
        QCOMPARE(names(QStringLiteral("Alle PDFs")), QStringList{"scan.pdf"});
    }

    void budgetAndFallback()
    {
        const DocumentChunk big = track(QStringLiteral("gross.txt"), QByteArray("a ").repeated(15000));
        track(QStringLiteral("klein.txt"), "klein");
        QStringList log;
        const auto message = ask(QStringLiteral("gross und klein"), {big}, &log);
        QVERIFY(message->contains(QStringLiteral("---\n") + QStringLiteral("a ").repeated(10000) +
                                  QStringLiteral("\n[... gekürzt ...]\n\n")));
        QCOMPARE(log.mid(4),
                 QStringList({QStringLiteral("📄 Injected full text of gross.txt (20018 chars)"),
                              QStringLiteral(" ⚠️ Context limit reached, skipping klein.txt")}));

        // A file without text yet: the semantic matches stand in for it.
        const DocumentChunk other = track(QStringLiteral("anders.txt"), "Anderer Text", Score060);
        track(QStringLiteral("leer.txt"), "");
        QVERIFY(
            ask(QStringLiteral("leer"), {other})
                ->contains(QStringLiteral("--- anders.txt ---\nAnderer Text\n\n[anders] Anderer Text\n\n")));
    }

    // No chunks ask nothing; a failed or empty answer gives no knowledge.
    void failures()
    {
        QStringList log;
        QVERIFY(!ask(QStringLiteral("Hallo"), {}, &log).has_value());
        QCOMPARE(log, QStringList{"⚠️ RAG: No external chunks available (globalChunks is empty)"});
        provider.clearScript();

        const DocumentChunk chunk = track(QStringLiteral("v.txt"), "Vektoren");
        QVERIFY(!ask(QStringLiteral("v"), {chunk}, &log, TestProvider::Response::text(500, "kaputt")));
        QCOMPARE(log.last(), QStringLiteral("❌ RAG Error: Error Domain=InfomaniakAPI Code=500 \"Embedding "
                                            "request failed (HTTP 500): kaputt\""));
        QVERIFY(
            !ask(QStringLiteral("v.txt"), {chunk}, &log, TestProvider::Response::json(200, "{\"data\":[]}")));
        QCOMPARE(log.size(), 2); // the query line and the file-name match, nothing after
    }
};

QUILLMOOR_TEST_MAIN(TestRetriever)
#include "tst_retriever.moc"
