#include "ConsoleCapture.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "StreamCollector.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QDir>
#include <QNetworkReply>
#include <QRegularExpression>

namespace {

using Response = TestProvider::Response;

CollectedStream ask(const TestProvider &provider, int timeoutMs = 60000)
{
    return readAll(clientFor(provider, timeoutMs)
                       ->sendStreamingMessage(QStringLiteral("Hallo"), {}, {}, QStringLiteral("mistral3"),
                                              QStringLiteral("Prompt"), {}));
}

QByteArray sseLine(const QByteArray &content)
{
    return R"(data: {"choices":[{"delta":{"content":")" + content + "\"}}]}\n";
}

// Serves a recorded body in small reads, so every line end and character may fall on a read boundary.
Response recorded(const QString &fixture, int readSize)
{
    QFile file(TestEnvironment::fixture(QStringLiteral("sse/") + fixture));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing fixture");
    const QByteArray body = file.readAll();
    Response r;
    // An occasional pause makes the reads end at arbitrary places without slowing long recordings down.
    for (qsizetype i = 0; i < body.size(); i += readSize)
        r.pieces.append({body.mid(i, readSize), (i / readSize) % 97 == 0 ? 1 : 0});
    return r;
}

} // namespace

class TestChatTurn : public QObject {
    Q_OBJECT
private slots:
    // Answers as the server writes them, behind a redirect or not. A 200 streams its pieces; any other
    // final status fails the turn after printing its body line by line (the pieces column). The answer that
    // counts is the one the redirects end on; the redirect's own page is no error body.
    void answers_data()
    {
        QTest::addColumn<int>("redirect");
        QTest::addColumn<int>("status");
        QTest::addColumn<QList<QByteArray>>("reads");
        QTest::addColumn<QStringList>("pieces");
        QTest::addRow("stops at [DONE]")
            << 0 << 200 << QList<QByteArray>{sseLine("Hal"), sseLine("lo"), "data: [DONE]\n", sseLine("x")}
            << QStringList{"Hal", "lo"};
        // The server closes in the middle of a line: what stands there is the last line.
        QTest::addRow("closed without [DONE]")
            << 0 << 200 << QList<QByteArray>{sseLine("eins"), "data:[DONE]\n", sseLine("zwei").chopped(1)}
            << QStringList{"eins", "zwei"};
        QTest::addRow("closed inside an event")
            << 0 << 200 << QList<QByteArray>{sseLine("eins"), sseLine("zwei").left(30)}
            << QStringList{"eins"};
        const QByteArray huge(10 * 1024 * 1024, 'x');
        QTest::addRow("hostile") << 0 << 200
                                 << QList<QByteArray>{"data: {\"choices\": 5}\ndata: [1,2]\n",
                                                      R"(data: {"choices":[{"delta":[]}]})"
                                                      "\n",
                                                      sseLine("a\xff\xfe"
                                                              "b"),
                                                      sseLine(huge), sseLine("ok")}
                                 << QStringList{QStringLiteral("a\uFFFD\uFFFDb"), QString::fromLatin1(huge),
                                                "ok"};
        QTest::addRow("307, then the answer")
            << 307 << 200 << QList<QByteArray>{sseLine("Hal"), sseLine("lo")} << QStringList{"Hal", "lo"};
        QTest::addRow("308, then the answer")
            << 308 << 200 << QList<QByteArray>{sseLine("Hal"), sseLine("lo")} << QStringList{"Hal", "lo"};
        QTest::addRow("307, then an error")
            << 307 << 429 << QList<QByteArray>{"slow down"} << QStringList{"slow down"};
        QTest::addRow("401 two lines") << 0 << 401 << QList<QByteArray>{"first line\r\nsecond line"}
                                       << QStringList{"first line", "second line"};
        QTest::addRow("502 html page")
            << 0 << 502 << QList<QByteArray>{"<html>\n<head><title>502 Bad Gateway</title></head>\n</html>\n"}
            << QStringList{"<html>", "<head><title>502 Bad Gateway</title></head>", "</html>"};
        QTest::addRow("empty body") << 0 << 500 << QList<QByteArray>{} << QStringList{};
        const QDir folder(TestEnvironment::fixture(QStringLiteral("sse")));
        for (const QString &name : folder.entryList({QStringLiteral("error_*.txt")})) {
            QFile file(folder.filePath(name));
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QByteArray body = file.readAll();
            QTest::addRow("%s", qPrintable(name))
                << 0 << name.section(QLatin1Char('_'), 1, 1).toInt() << QList<QByteArray>{body}
                << QString::fromUtf8(body.endsWith('\n') ? body.chopped(1) : body).split(QLatin1Char('\n'));
        }
    }
    void answers()
    {
        QFETCH(int, redirect);
        QFETCH(int, status);
        QFETCH(QList<QByteArray>, reads);
        QFETCH(QStringList, pieces);
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        TestProvider provider;
        QVERIFY(provider.listen());
        if (redirect)
            provider.enqueueChat(Response::redirect(redirect, "/v2/chat/completions"));
        Response response;
        response.status = status;
        for (const QByteArray &read : reads)
            response.pieces.append({read, 0});
        provider.enqueueChat(response);
        ConsoleCapture console;
        const CollectedStream result = ask(provider);

        const QList<TestProvider::Request> requests = provider.requests();
        QCOMPARE(requests.size(), redirect ? 2 : 1);
        QCOMPARE(requests.last().path,
                 redirect ? QByteArray("/v2/chat/completions") : QByteArray("/v1/chat/completions"));
        QCOMPARE(requests.last().body, requests.first().body);
        const QString code = QString::number(status);
        QVERIFY(console.contains(QStringLiteral("Stream: Response received. Status: ") + code));
        if (redirect)
            QVERIFY(!console.text().contains(QString::number(redirect)));
        QStringList printed;
        for (const QString &line : console.lines())
            if (line.startsWith(QLatin1String("Error Body: ")))
                printed.append(line.mid(12));
        if (status == 200) {
            QVERIFY(!result.error);
            QCOMPARE(result.pieces, pieces);
            QVERIFY(printed.isEmpty());
            return;
        }
        QVERIFY(result.pieces.isEmpty());
        QCOMPARE(result.error.value_or(ProviderError{}),
                 ProviderError::api(status, QStringLiteral("API request failed with status ") + code));
        QCOMPARE(printed, pieces);
        QVERIFY(console.contains(QStringLiteral("API Error: Status ") + code));
        QVERIFY(console.contains(QStringLiteral("Stream Error: ") + result.error->fullText()));
    }

    // Every recorded answer in the fixture folder, read in small pieces and in large ones.
    void recordedStreams_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<int>("pieces");
        QTest::addColumn<QString>("text"); // how the answer begins
        const QHash<QString, QPair<int, QString>> expected{
            {"azure_ai_inference_phi3_role_only_usage", {1, "Test content"}}, // role-only first delta
            {"azure_openai_content_filter_empty_choices", {2, "Kindness"}},
            {"deepseek_reasoner_null_content_emoji", {12, "Hello there! 😊 How can I help you today?"}},
            {"openai_gpt5_moderation_obfuscation", {3, "Paris."}},
            {"openrouter_keepalive_midstream_error", {4, ""}}, // comments, an error object mid-stream
            {"vllm_0.24_crusoe_llama3.3_usage", {14, "1, 2, 3, 4, 5"}},
            {"hf_tgi_nospace_no_done", {0, ""}},               // "data:" without a space, no [DONE]
            {"gemini_native_crlf_not_openai_schema", {0, ""}}, // CR LF, another schema
            {"mistral_tiny_role_null_length_utf8",
             {124, "It is subjective to determine the \"best\" French cheese"}},
            // Both choices' chunks, each read as "the first choice".
            {"openai_gpt4o-mini_n2_interleaved_usage", {106, "I'mI'm unable unable to to"}}};
        const QDir folder(TestEnvironment::fixture(QStringLiteral("sse")));
        for (const QString &name : folder.entryList({QStringLiteral("*.txt")})) {
            if (name.startsWith(QLatin1String("error_")))
                continue; // answers with an error status, below
            const QString stem = name.chopped(4);
            QVERIFY2(expected.contains(stem), qPrintable(name + QStringLiteral(" has no expectation")));
            QTest::addRow("%s", qPrintable(stem)) << name << expected[stem].first << expected[stem].second;
        }
    }
    void recordedStreams()
    {
        QFETCH(QString, fixture);
        QFETCH(int, pieces);
        QFETCH(QString, text);
        for (int readSize : {pieces > 100 ? 13 : 1, 4096}) { // long recordings a few bytes at a time
            TestProvider provider;
            QVERIFY(provider.listen());
            provider.enqueueChat(recorded(fixture, readSize));
            const CollectedStream result = ask(provider);
            QVERIFY(!result.error);
            QCOMPARE(result.pieces.size(), pieces);
            QCOMPARE(result.text().left(text.size()), text);
            if (pieces < 20)
                QCOMPARE(result.text(), text);
        }
    }

    // A server silent after some pieces, after its head or from the start: the time-out is no cancel, it
    // says what happened, keeps what came, and the aborted reply is not read again. (A broken transfer is
    // the session test's; no server at all takes the silent start's way, and the embeddings test's.)
    void transportFailures()
    {
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        TestProvider provider;
        QVERIFY(provider.listen());
        Response stalled = Response::sse({QStringLiteral("Teil")}, false);
        stalled.pieces.append({sseLine("never"), 600000});
        Response headsOnly;
        headsOnly.stallAfterHeads = true;
        Response never;
        never.neverAnswer = true;
        const ProviderError timedOut{QStringLiteral("QNetworkReply"), int(QNetworkReply::TimeoutError),
                                     QStringLiteral("The request timed out.")};
        for (const Response &silent : {stalled, headsOnly, never}) {
            provider.enqueueChat(silent);
            ConsoleCapture silentConsole;
            const CollectedStream result = ask(provider, 400);
            QCOMPARE(result.pieces, silent.pieces.isEmpty() ? QStringList() : QStringList{"Teil"});
            QCOMPARE(result.error.value_or(ProviderError{}), timedOut);
            QVERIFY(silentConsole.contains(QStringLiteral("Stream Error: ") + timedOut.fullText()));
        }
    }

    void tenTurnsAtOnceWhileKnowledgeChanges()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        provider.setDefaultDelayMs(5);
        const auto api = clientFor(provider);
        ContextManager knowledge(api);
        QList<QUrl> files;
        for (int i = 0; i < 3; ++i) {
            files.append(QUrl::fromLocalFile(
                TestEnvironment::writeFile(QStringLiteral("wissen%1.txt").arg(i), "Fassung 0 von Wissen")));
            knowledge.addFile(files.last());
        }
        QCoro::waitFor(knowledge.waitUntilIdle());

        QList<std::shared_ptr<ChatStream>> turns;
        for (int i = 0; i < 10; ++i)
            turns.append(api->sendStreamingMessage(QStringLiteral("Was steht im Wissen?"), {},
                                                   knowledge.globalChunks(), QStringLiteral("mistral3"),
                                                   QStringLiteral("P"), {}));
        for (int round = 1; round <= 3; ++round) {
            for (const QUrl &file : files) {
                TestEnvironment::writeFile(file.fileName(),
                                           "Fassung " + QByteArray::number(round) + " von Wissen");
                knowledge.processFile(file);
            }
            QTest::qWait(30);
        }
        for (const auto &turn : turns) {
            const CollectedStream result = readAll(turn);
            QVERIFY(!result.error);
            QVERIFY(result.text().contains(QStringLiteral("Wissen: *aus deinen Dateien*")));
        }
        const QList<TestProvider::Request> chats = provider.requests("/chat/completions");
        QCOMPARE(chats.size(), 10);
        for (const TestProvider::Request &chat : chats)
            QVERIFY(
                chat.json()[QStringLiteral("messages")][0][QStringLiteral("content")].toString().startsWith(
                    QStringLiteral("<database_schema>\nVerfügbare Wissensdateien:\n")));
        QCoro::waitFor(knowledge.waitUntilIdle());
    }
};

QUILLMOOR_TEST_MAIN(TestChatTurn)
#include "tst_chatturn.moc"
