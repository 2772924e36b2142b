#include "AppSettings.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QImage>
#include <QJsonArray>
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

// `variables` (NAME=value) replace the app's own server variables, which name the provider otherwise.
Run runCli(const TestProvider &provider, const QStringList &args, const QStringList &variables = {})
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (variables.isEmpty()) {
        env.insert(QStringLiteral("QUILLMOOR_API_BASE_URL"), provider.baseUrl().toString());
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
    process.start(QStringLiteral(QUILLMOOR_CLI_PATH), QStringList{QStringLiteral("ask")} + args);
    if (!finished.wait(30000))
        process.kill();
    run.out += process.readAllStandardOutput();
    run.err = QString::fromUtf8(process.readAllStandardError());
    run.exitCode = process.exitCode();
    return run;
}

} // namespace

class TestCliAsk : public QObject {
    Q_OBJECT
private slots:
    void streamsTheAnswerPieceByPiece()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        provider.enqueueChat(
            Response::sse({QStringLiteral("Hal"), QStringLiteral("lo "), QStringLiteral("Welt")}, true, 150));
        const Run run = runCli(provider, {QStringLiteral("Frage?")});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, QByteArray("Hallo Welt")); // nothing added, not even a line break
        QVERIFY(run.stdoutReads >= 2);               // written as the pieces came
        QVERIFY(run.err.contains(QStringLiteral("Stream: Response received. Status: 200")));
        const QJsonObject body = provider.requests().first().json();
        QCOMPARE(body.value(QStringLiteral("model")).toString(), AppSettings::DefaultModel);
        QCOMPARE(provider.requests().first().headers.value("authorization"), QByteArray("Bearer cli-key"));
    }

    void failedTurnPrintsTheNote()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        provider.enqueueChat(Response::text(401, "unauthorized"));
        const Run run = runCli(provider, {QStringLiteral("Frage?")});
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(QString::fromUtf8(run.out),
                 QStringLiteral("\n[Fehler: API request failed with status 401]"));
        QVERIFY(run.err.contains(QStringLiteral("Error Body: unauthorized")));
    }

    void usageErrors_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addRow("no question") << QStringList{};
        QTest::addRow("two questions") << QStringList{"a", "b"};
        QTest::addRow("empty question, nothing attached") << QStringList{""};
        QTest::addRow("unknown option") << QStringList{"--frobnicate", "a"};
        QTest::addRow("option without value") << QStringList{"a", "--model"};
        QTest::addRow("missing attachment") << QStringList{"--attach", "/nonexistent/x.png", "a"};
        QTest::addRow("history not json")
            << QStringList{"--history", TestEnvironment::writeFile("h.json", "{nope"), "a"};
        QTest::addRow("history wrong shape")
            << QStringList{"--history", TestEnvironment::writeFile("h2.json", "[{\"role\":1}]"), "a"};
    }
    void usageErrors()
    {
        QFETCH(QStringList, args);
        TestProvider provider;
        QVERIFY(provider.listen());
        const Run run = runCli(provider, args);
        QCOMPARE(run.exitCode, 64);
        QVERIFY(run.out.isEmpty());
        QCOMPARE(run.err.count(QStringLiteral("quillmoor-cli ask: ")), 1); // one line says what is wrong
        QVERIFY(provider.requests().isEmpty());
    }

    void oneTurnOverridesAndHistory()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        const QString history = TestEnvironment::writeFile(
            QStringLiteral("history.json"),
            R"([{"role":"user","content":"Erste"},{"role":"assistant","content":"Antwort"}])");
        const Run run = runCli(provider, {QStringLiteral("--model"), QStringLiteral("qwen3"),
                                          QStringLiteral("--prompt"), QStringLiteral("Kurz."),
                                          QStringLiteral("--history"), history, QStringLiteral("Zweite")});
        QCOMPARE(run.exitCode, 0);
        const QJsonObject body = provider.requests().first().json();
        QCOMPARE(body.value(QStringLiteral("model")).toString(), QStringLiteral("qwen3"));
        const QJsonArray messages = body.value(QStringLiteral("messages")).toArray();
        QCOMPARE(messages.size(), 4);
        QVERIFY(messages[0].toObject()[QStringLiteral("content")].toString().startsWith(
            QStringLiteral("Kurz.\n")));
        QCOMPARE(messages[2].toObject(), (QJsonObject{{"role", "assistant"}, {"content", "Antwort"}}));
        QCOMPARE(messages[3].toObject(), (QJsonObject{{"role", "user"}, {"content", "Zweite"}}));
        AppSettings settings; // the overrides were for this turn only
        QCOMPARE(settings.selectedModel(), AppSettings::DefaultModel);
        QCOMPARE(settings.masterPrompt(), AppSettings::DefaultMasterPrompt);
    }

    // The companion reads the environment as the app does: the OpenAI variables name the server, and the
    // file's and the question's vectors come from QUILLMOOR_EMBEDDING_MODEL. A second run with the same
    // file asks only for the question's vector.
    void ownServerAndKeptVectors()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        const QString notes =
            TestEnvironment::writeFile(QStringLiteral("Lieferung.txt"), "Die Lieferung kommt am Montag.");
        const QStringList variables{QStringLiteral("OPENAI_BASE_URL=") + provider.baseUrl().toString(),
                                    QStringLiteral("OPENAI_API_KEY=sk-cli"),
                                    QStringLiteral("QUILLMOOR_EMBEDDING_MODEL=nomic-embed-text")};
        const QStringList args{QStringLiteral("--knowledge"), notes, QStringLiteral("Wann kommt sie?")};
        QCOMPARE(runCli(provider, args, variables).exitCode, 0);
        QCOMPARE(provider.requests("/chat/completions").first().headers.value("authorization"),
                 QByteArray("Bearer sk-cli"));
        QCOMPARE(provider.requests("/embeddings").size(), 2);
        for (const TestProvider::Request &request : provider.requests("/embeddings"))
            QCOMPARE(request.json().value("model").toString(), QStringLiteral("nomic-embed-text"));

        provider.clearRequests();
        QCOMPARE(runCli(provider, args, variables).exitCode, 0);
        QCOMPARE(provider.requests("/embeddings").size(), 1);
        QCOMPARE(provider.requests("/embeddings").first().json().value("mode").toString(),
                 QStringLiteral("query"));
        QVERIFY(provider.requests("/chat/completions")
                    .first()
                    .json()["messages"][0]["content"]
                    .toString()
                    .contains(QStringLiteral("Die Lieferung kommt am Montag.")));
    }

    // A photo whose pixels pass Qt's default decoding guard of 256 MB is still sent whole.
    void fullSizePhoto()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        const QString photo = TestEnvironment::home().filePath(QStringLiteral("gross.jpg"));
        QImage image(8200, 8200, QImage::Format_RGB32);
        image.fill(Qt::darkCyan);
        QVERIFY(image.save(photo, "JPEG", 30));
        image = QImage();
        const Run run = runCli(provider, {QStringLiteral("--model"), QStringLiteral("qwen3"),
                                          QStringLiteral("--attach"), photo, QStringLiteral("Was ist das?")});
        QCOMPARE(run.exitCode, 0);
        const QJsonArray parts = provider.requests()
                                     .first()
                                     .json()[QStringLiteral("messages")]
                                     .toArray()
                                     .last()[QStringLiteral("content")]
                                     .toArray();
        QCOMPARE(parts.size(), 2);
    }

    void picturesAndKnowledge()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        const QString picture = TestEnvironment::home().filePath(QStringLiteral("foto.jpg"));
        QImage image(20, 10, QImage::Format_RGB32);
        image.fill(Qt::green);
        QVERIFY(image.save(picture, "JPEG"));

        // The default model cannot see: the canned reply, no request, a normal end.
        const Run refused =
            runCli(provider, {QStringLiteral("--attach"), picture, QStringLiteral("Was ist das?")});
        QCOMPARE(refused.exitCode, 0);
        QCOMPARE(QString::fromUtf8(refused.out),
                 QStringLiteral(
                     "Entschuldigung, ich kann mit dem aktuellen Modell leider keine Bilder sehen. 🙈\n\n"
                     "Bitte wähle in den Einstellungen das **Qwen Vision Modell** (qwen3), wenn du mir "
                     "Bilder zeigen möchtest."));
        QVERIFY(provider.requests().isEmpty());

        // With knowledge, the file is processed first and the turn carries it.
        const QString notes =
            TestEnvironment::writeFile(QStringLiteral("Preisliste.txt"), "Der Kaffee kostet 4 Franken.");
        const Run grounded =
            runCli(provider,
                   {QStringLiteral("--knowledge"), notes, QStringLiteral("--model"), QStringLiteral("qwen3"),
                    QStringLiteral("--attach"), picture, QStringLiteral("Was steht in der Preisliste?")});
        QCOMPARE(grounded.exitCode, 0);
        QCOMPARE(provider.requests("/embeddings").size(), 2); // the file, then the question
        const QJsonArray messages =
            provider.requests("/chat/completions").first().json()[QStringLiteral("messages")].toArray();
        const QString system = messages.first().toObject()[QStringLiteral("content")].toString();
        QVERIFY(system.startsWith(QStringLiteral("<database_schema>\n")));
        QVERIFY(system.contains(QStringLiteral("Der Kaffee kostet 4 Franken.")));
        QCOMPARE(messages.last().toObject()[QStringLiteral("content")].toArray().size(), 2);
    }
};

QUILLMOOR_TEST_MAIN(TestCliAsk)
#include "tst_cli_ask.moc"
