#include "CaseFiles.h"
#include "KnowledgeTestUtil.h"
#include "Services/Retriever.h"

using namespace KnowledgeTest;

namespace {

const QByteArray QueryAnswer = "{\"data\":[{\"embedding\":[1,0,0,0,0]}]}";
const QList<double> Score060{3, 4, 0, 0, 0}; // 3 / 5
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
        const TestProvider::Response &answer = TestProvider::Response::body(200, QueryAnswer))
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
    // of another length score nothing. Chunks that lead to no file give no knowledge. The cases are in
    // tests/data/retriever: the chunks' vectors and the log the retrieval writes.
    void scoring_data()
    {
        QTest::addColumn<QJsonArray>("vectors");
        QTest::addColumn<QStringList>("log");
        const auto cases = CaseFiles::cases(QStringLiteral("retriever"));
        QVERIFY(!cases.isEmpty());
        for (const auto &[row, values] : cases)
            QTest::newRow(row.constData())
                << values.at(0).toArray() << values.at(1).toVariant().toStringList();
    }
    void scoring()
    {
        QFETCH(QJsonArray, vectors);
        QFETCH(QStringList, log);
        QList<DocumentChunk> chunks;
        for (const QJsonValue &vector : vectors) {
            QList<double> numbers;
            for (const QJsonValue &number : vector.toArray())
                numbers.append(number.toDouble());
            chunks.append({QStringLiteral("Stück %1").arg(chunks.size()), numbers});
        }
        QStringList written;
        QVERIFY(!ask(QStringLiteral("Was gibt es?"), chunks, &written).has_value());
        QCOMPARE(written, log);
    }

    void knowledgeFormCharacterForCharacter()
    {
        const DocumentChunk chunk = track(QStringLiteral("notiz.txt"), "Die Miete ist 900.", Score060);
        QCOMPARE(CaseFiles::lines(*ask(QStringLiteral("Miete?"), {chunk})),
                 CaseFiles::expected(QStringLiteral("retriever/knowledge")));
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
        QVERIFY(!ask(QStringLiteral("v"), {chunk}, &log, TestProvider::Response::body(500, "kaputt")));
        QCOMPARE(log.last(), QStringLiteral("❌ RAG Error: Error Domain=InfomaniakAPI Code=500 \"Embedding "
                                            "request failed (HTTP 500): kaputt\""));
        QVERIFY(
            !ask(QStringLiteral("v.txt"), {chunk}, &log, TestProvider::Response::body(200, "{\"data\":[]}")));
        QCOMPARE(log.size(), 2); // the query line and the file-name match, nothing after
    }
};

QUILLMOOR_TEST_MAIN(TestRetriever)
#include "tst_retriever.moc"
