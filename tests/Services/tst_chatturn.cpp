#include "ConsoleCapture.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "Services/InfomaniakAPI.h"
#include "StreamCollector.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>

namespace {

using Response = TestProvider::Response;

InfomaniakAPI apiFor(const TestProvider &provider, int timeoutMs = 60000)
{
    return *clientFor(provider, timeoutMs);
}

std::shared_ptr<ChatStream> ask(const InfomaniakAPI &api, const QString &message = QStringLiteral("Hallo"))
{
    return api.sendStreamingMessage(message, {}, {}, QStringLiteral("mistral3"), QStringLiteral("Prompt"),
                                    {});
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
    void piecesArriveInOrderAndStopAtDone()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        Response response = Response::sse({QStringLiteral("Hal"), QStringLiteral("lo")});
        response.pieces.append({R"(data: {"choices":[{"delta":{"content":"after done"}}]})"
                                "\n\n",
                                0});
        provider.enqueueChat(response);
        ConsoleCapture console;
        const CollectedStream result = readAll(ask(apiFor(provider)));
        QCOMPARE(result.pieces, QStringList({QStringLiteral("Hal"), QStringLiteral("lo")}));
        QVERIFY(!result.error);
        QVERIFY(console.contains(
            QStringLiteral("Stream: Starting request for model mistral3... with 0 attachments")));
        QVERIFY(console.contains(QStringLiteral("Stream: Response received. Status: 200")));

        const TestProvider::Request request = provider.requests().first();
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.path, QByteArray("/v1/chat/completions"));
        QCOMPARE(request.headers.value("authorization"), QByteArray("Bearer test-key"));
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
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
            const CollectedStream result = readAll(ask(apiFor(provider)));
            QVERIFY(!result.error);
            QCOMPARE(result.pieces.size(), pieces);
            QCOMPARE(result.text().left(text.size()), text);
            if (pieces < 20)
                QCOMPARE(result.text(), text);
        }
    }

    void httpErrorPrintsBodyThenFails_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QStringList>("bodyLines");
        QTest::addRow("401 two lines")
            << 401 << QByteArray("first line\r\nsecond line") << QStringList{"first line", "second line"};
        QTest::addRow("502 html page")
            << 502 << QByteArray("<html>\n<head><title>502 Bad Gateway</title></head>\n</html>\n")
            << QStringList{"<html>", "<head><title>502 Bad Gateway</title></head>", "</html>"};
        QTest::addRow("empty body") << 500 << QByteArray() << QStringList{};
        const QDir folder(TestEnvironment::fixture(QStringLiteral("sse")));
        for (const QString &name : folder.entryList({QStringLiteral("error_*.txt")})) {
            QFile file(folder.filePath(name));
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QByteArray body = file.readAll();
            QTest::addRow("%s", qPrintable(name)) << name.section(QLatin1Char('_'), 1, 1).toInt() << body
                                                  << QString::fromUtf8(body).split(QLatin1Char('\n'));
        }
    }
    void httpErrorPrintsBodyThenFails()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QStringList, bodyLines);
        if (!bodyLines.isEmpty() && bodyLines.last().isEmpty())
            bodyLines.removeLast(); // a final line end opens no further line
        TestProvider provider;
        QVERIFY(provider.listen());
        provider.enqueueChat(Response::text(status, body, "text/html"));
        ConsoleCapture console;
        const CollectedStream result = readAll(ask(apiFor(provider)));
        QVERIFY(result.pieces.isEmpty());
        QVERIFY(result.error);
        QCOMPARE(result.error->domain, QStringLiteral("InfomaniakAPI"));
        QCOMPARE(result.error->code, status);
        QCOMPARE(result.error->description, QStringLiteral("API request failed with status %1").arg(status));

        QStringList printed;
        for (const QString &line : console.text().split(QLatin1Char('\n')))
            if (line.startsWith(QLatin1String("Error Body: ")))
                printed.append(line.mid(12));
        QCOMPARE(printed, bodyLines);
        QVERIFY(console.contains(QStringLiteral("API Error: Status %1").arg(status)));
        QVERIFY(console.contains(QStringLiteral("Stream Error: ") + result.error->fullText()));
    }

    // The answer that counts is the one the redirects end on; the redirect's own page is no error body.
    void redirectsStreamWithTheFinalStatus_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("finalStatus");
        QTest::addRow("307, then the answer") << 307 << 200;
        QTest::addRow("308, then the answer") << 308 << 200;
        QTest::addRow("307, then an error") << 307 << 429;
    }
    void redirectsStreamWithTheFinalStatus()
    {
        QFETCH(int, status);
        QFETCH(int, finalStatus);
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        TestProvider provider;
        QVERIFY(provider.listen());
        provider.enqueueChat(Response::redirect(status, "/v2/chat/completions"));
        provider.enqueueChat(finalStatus == 200 ? Response::sse({QStringLiteral("Hal"), QStringLiteral("lo")})
                                                : Response::text(finalStatus, "slow down"));
        ConsoleCapture console;
        const CollectedStream result = readAll(ask(apiFor(provider)));

        const QList<TestProvider::Request> requests = provider.requests();
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests[1].path, QByteArray("/v2/chat/completions"));
        QCOMPARE(requests[1].method, QByteArray("POST"));
        QCOMPARE(requests[1].body, requests[0].body);
        QVERIFY2(console.contains(QStringLiteral("Stream: Response received. Status: %1").arg(finalStatus)),
                 qPrintable(console.text()));
        QVERIFY(!console.text().contains(QString::number(status)));
        if (finalStatus == 200) {
            QVERIFY(!result.error);
            QCOMPARE(result.pieces, QStringList({QStringLiteral("Hal"), QStringLiteral("lo")}));
            QVERIFY(!console.text().contains(QStringLiteral("Error Body:")));
        } else {
            QCOMPARE(*result.error, ProviderError::api(finalStatus, QStringLiteral("API request failed with "
                                                                                   "status %1")
                                                                        .arg(finalStatus)));
            QVERIFY(console.contains(QStringLiteral("Error Body: slow down")));
            QVERIFY(!console.text().contains(QStringLiteral("Moved to")));
        }
    }

    void transportFailures()
    {
        ConsoleCapture console;
        // Nothing listens on the port.
        quint16 closedPort;
        {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost));
            closedPort = probe.serverPort();
        }
        qputenv("QUILLMOOR_API_BASE_URL", QStringLiteral("http://127.0.0.1:%1/v1").arg(closedPort).toUtf8());
        const CollectedStream unreachable = readAll(ask(InfomaniakAPI::fromEnvironment()));
        QVERIFY(unreachable.error);
        QCOMPARE(unreachable.error->domain, QStringLiteral("QNetworkReply"));
        QVERIFY(console.contains(QStringLiteral("Stream Error: ") + unreachable.error->fullText()));

        // Heads, one piece, then silence: the inactivity time-out ends the turn, keeping what came.
        TestProvider provider;
        QVERIFY(provider.listen());
        Response stalled = Response::sse({QStringLiteral("Teil")}, false);
        stalled.pieces.append({"data: {\"choices\":[{\"delta\":{\"content\":\"never\"}}]}\n\n", 600000});
        provider.enqueueChat(stalled);
        // A time-out is no cancel: it says what happened, and the aborted reply is not read again.
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        ConsoleCapture silentConsole;
        const CollectedStream silent = readAll(ask(apiFor(provider, 400)));
        QCOMPARE(silent.pieces, QStringList{QStringLiteral("Teil")});
        const ProviderError timedOut{QStringLiteral("QNetworkReply"), int(QNetworkReply::TimeoutError),
                                     QStringLiteral("The request timed out.")};
        QCOMPARE(*silent.error, timedOut);
        QVERIFY(silentConsole.contains(QStringLiteral("Stream Error: ") + timedOut.fullText()));

        // The response head, then nothing at all.
        Response headsOnly;
        headsOnly.stallAfterHeads = true;
        provider.enqueueChat(headsOnly);
        ConsoleCapture headsConsole;
        const CollectedStream mute = readAll(ask(apiFor(provider, 400)));
        QVERIFY(mute.pieces.isEmpty());
        QCOMPARE(*mute.error, timedOut);
        QVERIFY(headsConsole.contains(QStringLiteral("Stream: Response received. Status: 200")));

        // A server that never answers at all.
        Response never;
        never.neverAnswer = true;
        provider.enqueueChat(never);
        const CollectedStream nothing = readAll(ask(apiFor(provider, 400)));
        QVERIFY(nothing.pieces.isEmpty());
        QCOMPARE(*nothing.error, timedOut);

        // A chunked body cut off before its end is a broken transfer, after the pieces that did arrive.
        Response cut = Response::sse({QStringLiteral("A"), QStringLiteral("B")}, false);
        cut.framing = TestProvider::Framing::ContentLength;
        cut.abortAfterPieces = true;
        provider.enqueueChat(cut);
        const CollectedStream broken = readAll(ask(apiFor(provider)));
        QCOMPARE(broken.pieces, QStringList({QStringLiteral("A"), QStringLiteral("B")}));
        QVERIFY(broken.error);
    }

    void endOfBodyWithoutDoneIsNormal()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        // The server closes in the middle of a line: what stands there is the last line.
        Response r = Response::sse({QStringLiteral("eins")}, false);
        r.pieces.append({"data:[DONE]\n", 0});
        r.pieces.append({"data: {\"choices\":[{\"delta\":{\"content\":\"zwei\"}}]}", 0});
        provider.enqueueChat(r);
        const CollectedStream result = readAll(ask(apiFor(provider)));
        QVERIFY(!result.error);
        QCOMPARE(result.pieces, QStringList({QStringLiteral("eins"), QStringLiteral("zwei")}));

        Response half = Response::sse({QStringLiteral("eins")}, false);
        half.pieces.append({"data: {\"choices\":[{\"delta\":{\"cont", 0});
        provider.enqueueChat(half);
        const CollectedStream truncated = readAll(ask(apiFor(provider)));
        QVERIFY(!truncated.error);
        QCOMPARE(truncated.pieces, QStringList{QStringLiteral("eins")});
    }

    void hostileBodies()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        const QString huge(10 * 1024 * 1024, QLatin1Char('x'));
        Response r = Response::sse({huge, QStringLiteral("ok")});
        r.pieces.prepend({"data: {\"choices\":[{\"delta\":{\"content\":\"a\xff\xfe"
                          "b\"}}]}\n",
                          0});
        r.pieces.prepend({"data: {\"choices\": 5}\ndata: [1,2]\ndata: {\"choices\":[{\"delta\":[]}]}\n", 0});
        provider.enqueueChat(r);
        const CollectedStream result = readAll(ask(apiFor(provider)));
        QVERIFY(!result.error);
        QCOMPARE(result.pieces.size(), 3);
        QCOMPARE(result.pieces[0], QStringLiteral("a\uFFFD\uFFFDb"));
        QCOMPARE(result.pieces[1].size(), huge.size());
        QCOMPARE(result.pieces[2], QStringLiteral("ok"));
    }

    void cancellingAbortsTheRequest()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        QStringList many;
        for (int i = 0; i < 200; ++i)
            many.append(QStringLiteral("p%1 ").arg(i));
        provider.enqueueChat(Response::sse(many, true, 20)); // four seconds of answer
        const auto stream = ask(apiFor(provider));
        const ChatStream::Item first = QCoro::waitFor(stream->next());
        QCOMPARE(first.kind, ChatStream::Item::Kind::Pieces);
        stream->cancel();
        const ChatStream::Item after = QCoro::waitFor(stream->next());
        QCOMPARE(after.kind, ChatStream::Item::Kind::End);
        // The provider's side of the connection goes away long before the answer would have ended.
        QTRY_VERIFY_WITH_TIMEOUT(provider.openConnections() == 0, 2000);
    }

    void tenTurnsAtOnceWhileKnowledgeChanges()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        provider.setDefaultDelayMs(5);
        const auto api = std::make_shared<const InfomaniakAPI>(apiFor(provider));
        ContextManager knowledge(api);
        QList<QUrl> files;
        for (int i = 0; i < 3; ++i) {
            const QString name = QStringLiteral("wissen%1.txt").arg(i);
            files.append(QUrl::fromLocalFile(TestEnvironment::writeFile(name, "Fassung 0 von Wissen")));
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
