#include "CaseFiles.h"
#include "ConsoleCapture.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "StreamCollector.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QRegularExpression>

namespace {

using Response = TestProvider::Response;

// One turn, sent and read as the chat window does.
CollectedStream ask(const TestProvider &provider, const QList<Attachment> &attachments = {},
                    int timeoutMs = 60000)
{
    return readAll(clientFor(provider, timeoutMs)
                       ->sendStreamingMessage(QStringLiteral("Frage"), attachments, {},
                                              QStringLiteral("mistral3"), QStringLiteral("Prompt"), {}));
}

QByteArray sseLine(const QByteArray &content)
{
    return R"(data: {"choices":[{"delta":{"content":")" + content + "\"}}]}\n";
}

Attachment document(const QString &name, const QByteArray &bytes)
{
    const QString path = TestEnvironment::writeFile(name, bytes);
    return Attachment(AttachmentType::document(QUrl::fromLocalFile(path), name));
}

Attachment picture(int width, int height)
{
    return Attachment(AttachmentType::image(ImageData::fromBytes(
        CaseFiles::read(TestEnvironment::writePicture(QStringLiteral("bild.png"), {width, height})))));
}

QJsonValue userContent(const TestProvider::Request &request)
{
    return request.json()[QStringLiteral("messages")].toArray().last()[QStringLiteral("content")];
}

QSize jpegSize(const QJsonValue &part)
{
    const QString url = part[QStringLiteral("image_url")][QStringLiteral("url")].toString();
    const QString prefix = QStringLiteral("data:image/jpeg;base64,");
    if (!url.startsWith(prefix) || url.contains(QLatin1Char('\n')))
        return {};
    return QImage::fromData(QByteArray::fromBase64(url.mid(prefix.size()).toLatin1()), "JPEG").size();
}

} // namespace

class TestChatTurn : public QObject {
    Q_OBJECT
    TestProvider m_provider;

private slots:
    void initTestCase() { QVERIFY(m_provider.listen()); }
    void init()
    {
        m_provider.clearRequests();
        m_provider.clearScript();
    }

    // The OpenAI client libraries' variables name a server too; the app's own win over them. The key of
    // OPENAI_API_KEY only goes to a server named in the environment, where a turn's question is embedded.
    void serverAndKeyFromTheEnvironment_data()
    {
        // The cases in tests/data/chatturn/environment.json: the variables (NAME=value, where "ours" and
        // "theirs" stand for the servers), the server asked ("" for none) and the authorization it got.
        QTest::addColumn<QStringList>("variables");
        QTest::addColumn<QString>("server");
        QTest::addColumn<QByteArray>("authorization");
        const auto cases = CaseFiles::cases(QStringLiteral("chatturn"));
        QVERIFY(!cases.isEmpty());
        for (const auto &[row, values] : cases)
            QTest::newRow(row.constData()) << values.at(0).toVariant().toStringList()
                                           << values.at(1).toString() << values.at(2).toString().toUtf8();
    }
    void serverAndKeyFromTheEnvironment()
    {
        QFETCH(QStringList, variables);
        QFETCH(QString, server);
        QFETCH(QByteArray, authorization);
        TestProvider theirs;
        QVERIFY(theirs.listen());
        for (const QString &variable : variables) {
            const QString name = variable.section(QLatin1Char('='), 0, 0);
            QString value = variable.section(QLatin1Char('='), 1);
            if (value == QLatin1String("ours") || value == QLatin1String("theirs"))
                value = (value == QLatin1String("ours") ? m_provider : theirs).baseUrl().toString() +
                        QLatin1Char('/');
            qputenv(name.toUtf8().constData(), value.toUtf8());
        }
        const InfomaniakAPI api = InfomaniakAPI::fromEnvironment();
        TestEnvironment::isolate();
        QCOMPARE(api.hasCustomEndpoint(), !server.isEmpty());
        if (server.isEmpty()) {
            QVERIFY(api.apiKey() != QStringLiteral("sk-theirs"));
            return;
        }

        const QList<DocumentChunk> knowledge{{QStringLiteral("Rechnung"), QList<double>(64, 0.1)}};
        const CollectedStream result = readAll(api.sendStreamingMessage(
            QStringLiteral("Frage"), {}, knowledge, QStringLiteral("qwen3"), std::nullopt, {}));
        QVERIFY(!result.error);
        TestProvider &asked = server == QLatin1String("ours") ? m_provider : theirs;
        QVERIFY((server == QLatin1String("ours") ? theirs : m_provider).requests().isEmpty());
        QCOMPARE(asked.requests("/chat/completions").size(), 1);
        QCOMPARE(asked.requests("/chat/completions").first().headers.value("authorization"), authorization);
        QCOMPARE(asked.requests("/embeddings").size(), 1);
    }

    // Documents follow the question as text blocks, empty or unreadable ones left out (how long ones are cut
    // is the text extraction test's). With pictures the question and the documents' text are the first
    // part, the pictures follow as JPEG in the order they were attached.
    void attachmentsJoinTheQuestion()
    {
        const QList<Attachment> documents{
            document(QStringLiteral("notes.md"), "# Notizen\nZeile mit Umlaut: ä"),
            document(QStringLiteral("leer.txt"), ""), document(QStringLiteral("alt.txt"), "Gr\xfc\xdf"),
            document(QStringLiteral("daten.csv"), "a,b\n1,2\n")};
        ask(m_provider, documents);
        ask(m_provider, QList{picture(64, 48)} + documents + QList{picture(16, 8)});
        QCOMPARE(CaseFiles::lines(userContent(m_provider.requests()[0]).toString()),
                 CaseFiles::expected(QStringLiteral("chatturn/documents")));
        const QJsonArray parts = userContent(m_provider.requests()[1]).toArray();
        QCOMPARE(parts.size(), 3);
        QCOMPARE(parts[0].toObject(),
                 (QJsonObject{{"type", "text"}, {"text", userContent(m_provider.requests()[0])}}));
        QCOMPARE(parts[1][QStringLiteral("type")].toString(), QStringLiteral("image_url"));
        QCOMPARE(jpegSize(parts[1]), QSize(64, 48));
        QCOMPARE(jpegSize(parts[2]), QSize(16, 8));
    }

    // Answers as servers write them: every recorded answer in the fixture folder and the cases in the data
    // folder, each served in small reads and in large ones, and against what its .expected file lists. A 200
    // streams its pieces; any other status (error_<status>_ in the name) fails the turn after printing its
    // body line by line. Behind a redirect, the answer that counts is the one the redirects end on.
    void answers_data()
    {
        QTest::addColumn<int>("redirect");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("readSize");
        QTest::addColumn<QStringList>("pieces");
        const QDir data(TestEnvironment::data(QStringLiteral("chatturn")));
        for (const QDir &folder : {QDir(TestEnvironment::fixture(QStringLiteral("sse"))), data}) {
            for (const QFileInfo &file : folder.entryInfoList({QStringLiteral("*.txt")})) {
                const QString name = file.completeBaseName();
                const QJsonDocument expected = QJsonDocument::fromJson(
                    CaseFiles::read(data.filePath(name + QStringLiteral(".expected"))));
                QVERIFY2(expected.isArray(), qPrintable(name + QStringLiteral(" has no expectation")));
                QStringList pieces;
                for (const QJsonValue &piece : expected.array())
                    pieces.append(piece.toString());
                const int status =
                    name.startsWith(QLatin1String("error_")) ? name.section(u'_', 1, 1).toInt() : 200;
                for (int readSize : {pieces.size() > 100 ? 13 : 1, 4096})
                    QTest::addRow("%s by %d", qPrintable(name), readSize)
                        << 0 << status << CaseFiles::read(file.filePath()) << readSize << pieces;
            }
        }
        const QByteArray huge(10 * 1024 * 1024, 'x');
        // Bytes that are no UTF-8 and a 10 MB piece come through the reader; malformed events are the stream
        // parsing test's.
        QTest::addRow("invalid UTF-8, huge piece")
            << 0 << 200
            << sseLine("a\xff\xfe"
                       "b") +
                   sseLine(huge) + sseLine("ok")
            << 1024 * 1024 << QStringList{QStringLiteral("a\uFFFD\uFFFDb"), QString::fromLatin1(huge), "ok"};
        QTest::addRow("307, then the answer")
            << 307 << 200 << sseLine("Hal") + sseLine("lo") << 4096 << QStringList{"Hal", "lo"};
        QTest::addRow("308, then the answer")
            << 308 << 200 << sseLine("Hal") + sseLine("lo") << 4096 << QStringList{"Hal", "lo"};
        QTest::addRow("307, then an error")
            << 307 << 429 << QByteArray("slow down") << 4096 << QStringList{"slow down"};
    }
    void answers()
    {
        QFETCH(int, redirect);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(int, readSize);
        QFETCH(QStringList, pieces);
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        if (redirect) {
            Response moved = Response::body(redirect, "<html><body>Moved</body></html>\n", "text/html");
            moved.headers.emplaceBack("Location", "/v2/chat/completions");
            m_provider.enqueueChat(moved);
        }
        Response response;
        response.status = status;
        // An occasional pause makes the reads end at arbitrary places without slowing long bodies down.
        for (qsizetype i = 0; i < body.size(); i += readSize)
            response.pieces.append({body.mid(i, readSize), (i / readSize) % 97 == 0 ? 1 : 0});
        m_provider.enqueueChat(response);
        ConsoleCapture console;
        const CollectedStream result = ask(m_provider);

        const QList<TestProvider::Request> requests = m_provider.requests();
        QCOMPARE(requests.size(), redirect ? 2 : 1);
        QCOMPARE(requests.last().path,
                 redirect ? QByteArray("/v2/chat/completions") : QByteArray("/v1/chat/completions"));
        const QString code = QString::number(status);
        QVERIFY(console.contains(QStringLiteral("Stream: Response received. Status: ") + code));
        if (redirect)
            QVERIFY(!console.text().contains(QString::number(redirect)));
        QStringList printed;
        for (const QString &line : console.lines())
            if (line.startsWith(QLatin1String("Error Body: ")))
                printed.append(line.mid(12));
        const bool ok = status == 200;
        QCOMPARE(result.pieces, ok ? pieces : QStringList());
        QCOMPARE(printed, ok ? QStringList() : pieces);
        QCOMPARE(result.error.value_or(ProviderError{}),
                 ok ? ProviderError{}
                    : ProviderError::api(status, QStringLiteral("API request failed with status ") + code));
        if (!ok)
            QVERIFY(console.contains(QStringLiteral("Stream Error: ") + result.error->fullText()));
    }

    // A server silent after some pieces, after its head or from the start: the time-out is no cancel, it
    // says what happened, keeps what came, and the aborted reply is not read again. (A broken transfer is
    // the session test's; no server at all takes the silent start's way, and the embeddings test's.)
    void transportFailures()
    {
        QTest::failOnWarning(QRegularExpression(QStringLiteral(".*")));
        Response stalled = Response::sse({QStringLiteral("Teil")}, false);
        stalled.pieces.append({sseLine("never"), 600000});
        Response headsOnly;
        headsOnly.stallAfterHeads = true;
        Response never;
        never.neverAnswer = true;
        const ProviderError timedOut{QStringLiteral("QNetworkReply"), int(QNetworkReply::TimeoutError),
                                     QStringLiteral("The request timed out.")};
        for (const Response &silent : {stalled, headsOnly, never}) {
            m_provider.enqueueChat(silent);
            const CollectedStream result = ask(m_provider, {}, 400);
            QCOMPARE(result.pieces, silent.pieces.isEmpty() ? QStringList() : QStringList{"Teil"});
            QCOMPARE(result.error.value_or(ProviderError{}), timedOut);
        }
    }

    void tenTurnsAtOnceWhileKnowledgeChanges()
    {
        m_provider.setDefaultDelayMs(5);
        const auto api = clientFor(m_provider);
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
            QVERIFY(result.pieces.join(QString()).contains(QStringLiteral("Wissen: *aus deinen Dateien*")));
        }
        QCOMPARE(m_provider.requests("/chat/completions").size(), 10);
        QCoro::waitFor(knowledge.waitUntilIdle());
    }
};

QUILLMOOR_TEST_MAIN(TestChatTurn)
#include "tst_chatturn.moc"
