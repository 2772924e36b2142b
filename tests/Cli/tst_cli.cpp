#include "AppSettings.h"
#include "CaseFiles.h"
#include "Services/DebugLog.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QSignalSpy>

namespace {

using Response = TestProvider::Response;

struct Run {
    int exitCode = -1;
    QByteArray out;
    QString err;
    int stdoutReads = 0;
};

// The command-line companion, aimed at the loopback provider, with more variables (NAME=value).
Run runCli(const QStringList &args, const TestProvider *provider = nullptr, const QStringList &variables = {})
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (provider) {
        env.insert(QStringLiteral("QUILLMOOR_API_BASE_URL"), provider->baseUrl().toString());
        env.insert(QStringLiteral("QUILLMOOR_API_KEY"), QStringLiteral("cli-key"));
    }
    for (const QString &variable : variables)
        env.insert(variable.section(QLatin1Char('='), 0, 0), variable.section(QLatin1Char('='), 1));
    process.setProcessEnvironment(env);
    Run run;
    QObject::connect(&process, &QProcess::readyReadStandardOutput, [&] {
        run.out += process.readAllStandardOutput();
        ++run.stdoutReads;
    });
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(QStringLiteral(QUILLMOOR_CLI_PATH), args);
    if (!finished.wait(120000))
        process.kill();
    run.out += process.readAllStandardOutput();
    run.err = QString::fromUtf8(process.readAllStandardError());
    run.exitCode = process.exitCode();
    return run;
}

} // namespace

class TestCli : public QObject {
    Q_OBJECT
    TestProvider m_provider;

private slots:
    void initTestCase() { QVERIFY(m_provider.listen()); }
    void init()
    {
        m_provider.clearRequests();
        m_provider.clearScript();
    }

    void usageErrors_data()
    {
        QTest::addColumn<QStringList>("args");
        // The cases in tests/data/cli/usage.json, and a history that does not read.
        const auto cases = CaseFiles::cases(QStringLiteral("cli"));
        QVERIFY(!cases.isEmpty());
        for (const auto &[row, args] : cases)
            QTest::newRow(row.constData()) << QJsonValue(args).toVariant().toStringList();
        QTest::addRow("ask: history not json")
            << QStringList{"ask", "--history", TestEnvironment::writeFile("h.json", "{nope"), "a"};
        QTest::addRow("ask: history wrong shape")
            << QStringList{"ask", "--history", TestEnvironment::writeFile("h2.json", "[{\"role\":1}]"), "a"};
    }
    void usageErrors()
    {
        QFETCH(QStringList, args);
        const Run run = runCli(args, &m_provider);
        QCOMPARE(run.exitCode, 64);
        QVERIFY(run.out.isEmpty());
        if (args.first() == QLatin1String("ask")) // one line says what is wrong
            QCOMPARE(run.err.count(QStringLiteral("quillmoor-cli ask: ")), 1);
        else
            QVERIFY(run.err.contains(QStringLiteral("usage:")));
        QVERIFY(m_provider.requests().isEmpty());
    }

    // The answer is written as its pieces come, nothing added; the history keeps its roles and order; the
    // overrides hold for this turn and are not stored. An HTTP error ends the answer with its note.
    void askOneTurn()
    {
        const QString history = TestEnvironment::writeFile(
            QStringLiteral("history.json"),
            R"([{"role":"user","content":"Erste"},{"role":"assistant","content":"Antwort"}])");
        m_provider.enqueueChat(
            Response::sse({QStringLiteral("Hal"), QStringLiteral("lo "), QStringLiteral("Welt")}, true, 150));
        const Run run = runCli(
            {"ask", "--model", "qwen3", "--prompt", "Kurz.", "--history", history, "Zweite"}, &m_provider);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QByteArray("Hallo Welt"));
        QVERIFY(run.stdoutReads >= 2);
        QCOMPARE(CaseFiles::lines(m_provider.requests().first().json()),
                 CaseFiles::expected(QStringLiteral("cli/ask")));
        QCOMPARE(AppSettings().selectedModel(), AppSettings::DefaultModel);
        QCOMPARE(AppSettings().masterPrompt(), AppSettings::DefaultMasterPrompt);

        m_provider.enqueueChat(Response::body(401, "unauthorized"));
        const Run failed = runCli({QStringLiteral("ask"), QStringLiteral("Frage?")}, &m_provider);
        QCOMPARE(failed.exitCode, 2);
        QCOMPARE(failed.out, QByteArray("\n[Fehler: API request failed with status 401]"));
    }

    // The file's and the question's vectors come from QUILLMOOR_EMBEDDING_MODEL. The knowledge file is
    // processed before the turn; a second run with the same file asks only for the question's vector. A
    // photo whose pixels pass Qt's default decoding guard of 256 MB is still sent whole.
    void askWithKnowledgeAndPicturesOnOwnServer()
    {
        const QString small = TestEnvironment::writePicture(QStringLiteral("foto.png"));
        // The default model cannot see: the canned reply, no request, a normal end.
        const Run refused = runCli({"ask", "--attach", small, "Was ist das?"}, &m_provider);
        QCOMPARE(refused.exitCode, 0);
        QVERIFY(
            refused.out.startsWith("Entschuldigung, ich kann mit dem aktuellen Modell leider keine Bilder"));
        QVERIFY(m_provider.requests().isEmpty());

        const QString notes =
            TestEnvironment::writeFile(QStringLiteral("Lieferung.txt"), "Die Lieferung kommt am Montag.");
        const QStringList variables{QStringLiteral("QUILLMOOR_EMBEDDING_MODEL=nomic-embed-text")};
        QImage photo(8200, 8200, QImage::Format_RGB32);
        photo.fill(Qt::darkCyan);
        const QString large = TestEnvironment::home().filePath(QStringLiteral("gross.jpg"));
        QVERIFY(photo.save(large, "JPEG", 30));
        const QStringList args{"ask",   "--knowledge", notes, "--model",
                               "qwen3", "--attach",    small, "Wann kommt sie?"};
        for (int run = 1; run <= 2; ++run) {
            m_provider.clearRequests();
            const QStringList photos = run == 1 ? QStringList{"--attach", large} : QStringList{};
            QCOMPARE(runCli(args + photos, &m_provider, variables).exitCode, 0);
            const QList<TestProvider::Request> embeddings = m_provider.requests("/embeddings");
            QCOMPARE(embeddings.size(), run == 1 ? 2 : 1);
            for (const TestProvider::Request &request : embeddings)
                QCOMPARE(request.json().value("model").toString(), QStringLiteral("nomic-embed-text"));
            QCOMPARE(embeddings.last().json().value("mode").toString(), QStringLiteral("query"));
            const TestProvider::Request chat = m_provider.requests("/chat/completions").first();
            const QJsonArray messages = chat.json()[QStringLiteral("messages")].toArray();
            QVERIFY(messages.first()[QStringLiteral("content")].toString().contains(
                QStringLiteral("Die Lieferung kommt am Montag.")));
            QCOMPARE(messages.last()[QStringLiteral("content")].toArray().size(), run == 1 ? 3 : 2);
        }
    }

    // The file commands print only their result; debug entries go to standard error and into the log,
    // whose header belongs to the knowledge base's start.
    void fileCommands_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("out");
        QTest::addColumn<QString>("err");
        const QByteArray longText = "Grüezi\n\nmitenand" + QByteArray(30000, 'x');
        const QString longFile = TestEnvironment::writeFile(QStringLiteral("lang.txt"), longText);
        const QString extracting = QStringLiteral("Extracting text from: %1 (accessing: true)\n");
        QTest::addRow("knowledge keeps the text whole")
            << QStringList{"extract", longFile} << 0 << longText << extracting.arg("lang.txt");
        QTest::addRow("Latin-1 gives nothing")
            << QStringList{"extract", TestEnvironment::writeFile(QStringLiteral("l1.txt"), "Gr\xfc\x65zi")}
            << 1 << QByteArray() << extracting.arg("l1.txt");
        QTest::addRow("attachment is cut")
            << QStringList{"extract", "--attachment", longFile} << 0
            << QString::fromUtf8(longText).left(30000).toUtf8() +
                   "\n\n[... Text wurde gekürzt, da das Dokument zu lang für den Kontext ist ...]"
            << QString();
        QTest::addRow("encrypted PDF")
            << QStringList{"extract",
                           TestEnvironment::fixture("pdf/encrypted_rc4_user_password_openpassword.pdf")}
            << 1 << QByteArray()
            << QStringLiteral(
                   "] ❌ PDFKit: Could not open PDF at encrypted_rc4_user_password_openpassword.pdf\n");
        // The only check that a workbook is cut into rows, as a table.
        QTest::addRow("workbook rows")
            << QStringList{"chunks",
                           TestEnvironment::fixture("xlsx/excel2007_formula_str_entities_sheetname_amp.xlsx")}
            << 0
            << QByteArray(
                   "{\"chunks\":[\"[5&amp;4] 1: \\\"&amp;&lt;&gt;\"],\"description\":\"Tabelle [5&amp;4] mit "
                   "Spalten: 1\"}")
            << QStringLiteral("] 📦 rowLevelChunk: 1 chunks, schema: Tabelle [5&amp;4] mit Spalten: 1");
        QTest::addRow("running text")
            << QStringList{"chunks", TestEnvironment::writeFile(QStringLiteral("Bericht 2024.final.md"),
                                                                "Eins zwei.\n\nDrei/vier.\n")}
            << 0
            << QByteArray(R"({"chunks":["[Bericht 2024.final] Eins zwei.\nDrei/vier."],)"
                          R"("description":"1 Abschnitte. Beginn: Eins zwei. Drei/vier...."})")
            << extracting.arg("Bericht 2024.final.md");
        QTest::addRow("nothing extracted")
            << QStringList{"chunks", TestEnvironment::writeFile(QStringLiteral("alt.txt"), "\xff\xfe")} << 0
            << QByteArray(R"({"chunks":[],"description":""})") << extracting.arg("alt.txt");
    }
    void fileCommands()
    {
        QFETCH(QStringList, args);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, out);
        QFETCH(QString, err);
        QFile::remove(DebugLog::filePath());
        const Run run = runCli(args);
        QCOMPARE(run.exitCode, exitCode);
        QCOMPARE(run.out, out);
        QVERIFY(run.err.contains(err));
        QFile log(DebugLog::filePath());
        QCOMPARE(log.open(QIODevice::ReadOnly) ? log.read(1) : QByteArray(), err.startsWith(u']') ? "[" : "");
    }

    // Without its PDF engine module a program still runs: a PDF gives nothing, the user is told why in German
    // and the log names the file it cost.
    void pdfEngineMissing()
    {
        const Run run = runCli({"extract", TestEnvironment::fixture("pdf/multipage_pdflatex_4pages.pdf")},
                               nullptr, {"QUILLMOOR_PDF_ENGINE=/nonexistent/libquillmoor-pdf.so"});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.out, QByteArray());
        QVERIFY2(run.err.contains(u"PDF-Dateien können nicht gelesen werden"), qPrintable(run.err));
        QVERIFY2(
            run.err.contains(u"] ❌ PDFKit: PDF engine not available for multipage_pdflatex_4pages.pdf: no "
                             u"libquillmoor-pdf.so in /nonexistent/libquillmoor-pdf.so\n"),
            qPrintable(run.err));
    }
};

QUILLMOOR_TEST_MAIN(TestCli)
#include "tst_cli.moc"
