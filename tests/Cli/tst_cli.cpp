#include "AppSettings.h"
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

// The command-line companion, aimed at the loopback provider; `variables` (NAME=value) replace the app's
// own server variables, which name the provider otherwise.
Run runCli(const QStringList &args, const TestProvider *provider = nullptr, const QStringList &variables = {})
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (provider && variables.isEmpty()) {
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

Run ask(const TestProvider &provider, const QStringList &args)
{
    return runCli(QStringList{QStringLiteral("ask")} + args, &provider);
}

QString picture(const QString &name, int side)
{
    const QString path = TestEnvironment::home().filePath(name);
    QImage image(side, side, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    image.save(path, "JPEG", 30);
    return path;
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
        QTest::addRow("ask: no question") << QStringList{"ask"};
        QTest::addRow("ask: two questions") << QStringList{"ask", "a", "b"};
        QTest::addRow("ask: empty question, nothing attached") << QStringList{"ask", ""};
        QTest::addRow("ask: unknown option") << QStringList{"ask", "--frobnicate", "a"};
        QTest::addRow("ask: option without value") << QStringList{"ask", "a", "--model"};
        QTest::addRow("ask: missing attachment") << QStringList{"ask", "--attach", "/nonexistent/x.png", "a"};
        QTest::addRow("ask: history not json")
            << QStringList{"ask", "--history", TestEnvironment::writeFile("h.json", "{nope"), "a"};
        QTest::addRow("ask: history wrong shape")
            << QStringList{"ask", "--history", TestEnvironment::writeFile("h2.json", "[{\"role\":1}]"), "a"};
        QTest::addRow("extract without file") << QStringList{"extract"};
        QTest::addRow("extract with two files") << QStringList{"extract", "a", "b"};
        QTest::addRow("extract: unknown option") << QStringList{"extract", "--pages", "a"};
        QTest::addRow("chunks without file") << QStringList{"chunks"};
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

    void askStreamsTheAnswerPieceByPiece()
    {
        m_provider.enqueueChat(
            Response::sse({QStringLiteral("Hal"), QStringLiteral("lo "), QStringLiteral("Welt")}, true, 150));
        const Run run = ask(m_provider, {QStringLiteral("Frage?")});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QByteArray("Hallo Welt")); // nothing added, not even a line break
        QVERIFY(run.stdoutReads >= 2);               // written as the pieces came
        QVERIFY(run.err.contains(QStringLiteral("Stream: Response received. Status: 200")));
        QCOMPARE(m_provider.requests().first().json()[QStringLiteral("model")].toString(),
                 AppSettings::DefaultModel);
        QCOMPARE(m_provider.requests().first().headers.value("authorization"), QByteArray("Bearer cli-key"));

        m_provider.enqueueChat(Response::text(401, "unauthorized"));
        const Run failed = ask(m_provider, {QStringLiteral("Frage?")});
        QCOMPARE(failed.exitCode, 2);
        QCOMPARE(QString::fromUtf8(failed.out),
                 QStringLiteral("\n[Fehler: API request failed with status 401]"));
        QVERIFY(failed.err.contains(QStringLiteral("Error Body: unauthorized")));
    }

    void askOverridesAndHistoryAreForOneTurn()
    {
        const QString history = TestEnvironment::writeFile(
            QStringLiteral("history.json"),
            R"([{"role":"user","content":"Erste"},{"role":"assistant","content":"Antwort"}])");
        const Run run =
            ask(m_provider, {"--model", "qwen3", "--prompt", "Kurz.", "--history", history, "Zweite"});
        QCOMPARE(run.exitCode, 0);
        const QJsonObject body = m_provider.requests().first().json();
        QCOMPARE(body[QStringLiteral("model")].toString(), QStringLiteral("qwen3"));
        const QJsonArray messages = body[QStringLiteral("messages")].toArray();
        QCOMPARE(messages.size(), 4);
        QVERIFY(messages[0][QStringLiteral("content")].toString().startsWith(QStringLiteral("Kurz.\n")));
        QCOMPARE(messages[1].toObject(), (QJsonObject{{"role", "user"}, {"content", "Erste"}}));
        QCOMPARE(messages[2].toObject(), (QJsonObject{{"role", "assistant"}, {"content", "Antwort"}}));
        QCOMPARE(messages[3].toObject(), (QJsonObject{{"role", "user"}, {"content", "Zweite"}}));
        AppSettings settings;
        QCOMPARE(settings.selectedModel(), AppSettings::DefaultModel);
        QCOMPARE(settings.masterPrompt(), AppSettings::DefaultMasterPrompt);
    }

    void askWithPicturesAndKnowledge()
    {
        const QString small = picture(QStringLiteral("foto.jpg"), 20);
        // The default model cannot see: the canned reply, no request, a normal end.
        const Run refused =
            ask(m_provider, {QStringLiteral("--attach"), small, QStringLiteral("Was ist das?")});
        QCOMPARE(refused.exitCode, 0);
        QVERIFY(
            refused.out.startsWith("Entschuldigung, ich kann mit dem aktuellen Modell leider keine Bilder"));
        QVERIFY(m_provider.requests().isEmpty());

        // With knowledge, the file is processed first and the turn carries it. A photo whose pixels pass
        // Qt's default decoding guard of 256 MB is still sent whole.
        const QString notes =
            TestEnvironment::writeFile(QStringLiteral("Preisliste.txt"), "Der Kaffee kostet 4 Franken.");
        const Run grounded =
            ask(m_provider, {"--knowledge", notes, "--model", "qwen3", "--attach", small, "--attach",
                             picture(QStringLiteral("gross.jpg"), 8200), "Was steht in der Preisliste?"});
        QCOMPARE(grounded.exitCode, 0);
        QCOMPARE(m_provider.requests("/embeddings").size(), 2); // the file, then the question
        const QJsonArray messages =
            m_provider.requests("/chat/completions").first().json()[QStringLiteral("messages")].toArray();
        const QString system = messages.first()[QStringLiteral("content")].toString();
        QVERIFY(system.startsWith(QStringLiteral("<database_schema>\n")));
        QVERIFY(system.contains(QStringLiteral("Der Kaffee kostet 4 Franken.")));
        QCOMPARE(messages.last()[QStringLiteral("content")].toArray().size(), 3);
    }

    // The companion reads the environment as the app does: the OpenAI variables name the server, and the
    // file's and the question's vectors come from QUILLMOOR_EMBEDDING_MODEL. A second run with the same
    // file asks only for the question's vector.
    void askOnOwnServerWithKeptVectors()
    {
        const QString notes =
            TestEnvironment::writeFile(QStringLiteral("Lieferung.txt"), "Die Lieferung kommt am Montag.");
        const QStringList variables{QStringLiteral("OPENAI_BASE_URL=") + m_provider.baseUrl().toString(),
                                    QStringLiteral("OPENAI_API_KEY=sk-cli"),
                                    QStringLiteral("QUILLMOOR_EMBEDDING_MODEL=nomic-embed-text")};
        const QStringList args{"ask", "--knowledge", notes, "Wann kommt sie?"};
        QCOMPARE(runCli(args, &m_provider, variables).exitCode, 0);
        QCOMPARE(m_provider.requests("/chat/completions").first().headers.value("authorization"),
                 QByteArray("Bearer sk-cli"));
        QCOMPARE(m_provider.requests("/embeddings").size(), 2);
        for (const TestProvider::Request &request : m_provider.requests("/embeddings"))
            QCOMPARE(request.json().value("model").toString(), QStringLiteral("nomic-embed-text"));

        m_provider.clearRequests();
        QCOMPARE(runCli(args, &m_provider, variables).exitCode, 0);
        QCOMPARE(m_provider.requests("/embeddings").size(), 1);
        QCOMPARE(m_provider.requests("/embeddings").first().json().value("mode").toString(),
                 QStringLiteral("query"));
        QVERIFY(m_provider.requests("/chat/completions")
                    .first()
                    .json()["messages"][0]["content"]
                    .toString()
                    .contains(QStringLiteral("Die Lieferung kommt am Montag.")));
    }

    void extractPrintsOnlyTheText_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("out");
        const QByteArray longText(30001, 'x');
        QTest::addRow("text unchanged")
            << QStringList{} << QByteArray("Grüezi\n\nmitenand") << 0 << QByteArray("Grüezi\n\nmitenand");
        QTest::addRow("Latin-1 gives nothing")
            << QStringList{} << QByteArray("Gr\xfc\x65zi") << 1 << QByteArray();
        QTest::addRow("knowledge keeps it whole") << QStringList{} << longText << 0 << longText;
        QTest::addRow("attachment is cut")
            << QStringList{QStringLiteral("--attachment")} << longText << 0
            << QByteArray(30000, 'x') +
                   "\n\n[... Text wurde gekürzt, da das Dokument zu lang für den Kontext ist ...]";
    }
    void extractPrintsOnlyTheText()
    {
        QFETCH(QStringList, options);
        QFETCH(QByteArray, bytes);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, out);
        const QString file = TestEnvironment::writeFile(QStringLiteral("notiz.txt"), bytes);
        const Run result = runCli(QStringList{QStringLiteral("extract")} + options + QStringList{file});
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(result.out, out);
        QCOMPARE(result.err.contains(QStringLiteral("Extracting text from: notiz.txt (accessing: true)\n")),
                 options.isEmpty());
    }

    void extractDebugLinesGoToStandardError()
    {
        QFile::remove(DebugLog::filePath());
        const Run result = runCli(
            {QStringLiteral("extract"),
             TestEnvironment::fixture(QStringLiteral("pdf/encrypted_rc4_user_password_openpassword.pdf"))});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY(result.err.contains(QStringLiteral(
            "] ❌ PDFKit: Could not open PDF at encrypted_rc4_user_password_openpassword.pdf\n")));
        // The entry lands in the log, but the header belongs to the knowledge base's start.
        QFile log(DebugLog::filePath());
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray text = log.readAll();
        QVERIFY(text.startsWith('['));
        QVERIFY(!text.contains("==="));
    }

    void chunksPrintsOneJsonObject_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QStringList>("chunks");
        QTest::addColumn<QString>("description");
        QTest::addRow("workbook rows") << TestEnvironment::fixture(QStringLiteral(
                                              "xlsx/excel2007_formula_str_entities_sheetname_amp.xlsx"))
                                       << QStringList{QStringLiteral("[5&amp;4] 1: \"&amp;&lt;&gt;")}
                                       << QStringLiteral("Tabelle [5&amp;4] mit Spalten: 1");
        QTest::addRow("running text")
            << TestEnvironment::writeFile(QStringLiteral("Bericht 2024.final.md"),
                                          "Eins zwei.\n\nDrei/vier.\n")
            << QStringList{QStringLiteral("[Bericht 2024.final] Eins zwei.\nDrei/vier.")}
            << QStringLiteral("1 Abschnitte. Beginn: Eins zwei. Drei/vier....");
        QTest::addRow("nothing extracted")
            << TestEnvironment::writeFile(QStringLiteral("alt.txt"), "\xff\xfe") << QStringList{}
            << QString();
    }
    void chunksPrintsOneJsonObject()
    {
        QFETCH(QString, file);
        QFETCH(QStringList, chunks);
        QFETCH(QString, description);
        const Run result = runCli({QStringLiteral("chunks"), file});
        QCOMPARE(result.exitCode, 0);
        QJsonParseError error{};
        const QJsonDocument json = QJsonDocument::fromJson(result.out, &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        QCOMPARE(json.object().keys(),
                 (QStringList{QStringLiteral("chunks"), QStringLiteral("description")}));
        QCOMPARE(json[QStringLiteral("chunks")].toArray().toVariantList(), QVariant(chunks).toList());
        QCOMPARE(json[QStringLiteral("description")].toString(), description);
    }
};

QUILLMOOR_TEST_MAIN(TestCli)
#include "tst_cli.moc"
