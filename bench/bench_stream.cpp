// Reading a 50 MB event stream through the chat turn's reader, against a plain loopback transfer of the same
// bytes in the same run. The ratio (reader time / socket time) is the figure.
#include "BenchUtil.h"
#include "Services/ChatStream.h"
#include "Services/InfomaniakAPI.h"
#include "Services/SseLineSplitter.h"
#include "Services/StreamEvent.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <qcoro/qcorotask.h>
#include <simdjson.h>

#include <string>
#include <vector>

namespace {

// Serves one fixed blob per connection from its own thread; in HTTP mode it waits for the request first.
class BlobServer : public QObject {
public:
    BlobServer(QByteArray head, QByteArray body, bool http)
        : m_head(std::move(head))
        , m_body(std::move(body))
        , m_http(http)
    {
    }
    quint16 start(QThread *thread)
    {
        moveToThread(thread);
        quint16 port = 0;
        QMetaObject::invokeMethod(
            this,
            [this, &port] {
                m_server = new QTcpServer(this);
                m_server->listen(QHostAddress::LocalHost);
                connect(m_server, &QTcpServer::newConnection, this, [this] { accept(); });
                port = m_server->serverPort();
            },
            Qt::BlockingQueuedConnection);
        return port;
    }

private:
    void accept()
    {
        QTcpSocket *socket = m_server->nextPendingConnection();
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        if (!m_http) {
            send(socket);
            return;
        }
        auto *request = new QByteArray;
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket, request] {
            *request += socket->readAll();
            const qsizetype end = request->indexOf("\r\n\r\n");
            if (end < 0)
                return;
            const qsizetype lengthAt = request->toLower().indexOf("content-length:");
            const qsizetype length =
                request->mid(lengthAt + 15, request->indexOf("\r\n", lengthAt) - lengthAt - 15)
                    .trimmed()
                    .toLongLong();
            if (request->size() < end + 4 + length)
                return;
            delete request;
            disconnect(socket, &QTcpSocket::readyRead, nullptr, nullptr);
            send(socket);
        });
    }
    void send(QTcpSocket *socket)
    {
        socket->write(m_head);
        constexpr qsizetype Block = 256 * 1024;
        for (qsizetype i = 0; i < m_body.size(); i += Block)
            socket->write(m_body.mid(i, Block));
        socket->disconnectFromHost();
    }

    QByteArray m_head;
    QByteArray m_body;
    bool m_http;
    QTcpServer *m_server = nullptr;
};

QByteArray syntheticStream(qsizetype bytes, qsizetype *events)
{
    QByteArray body;
    body.reserve(bytes + 1024);
    *events = 0;
    const QString words = QStringLiteral("Ein Stück Antwort mit Umlauten äöü und etwas mehr Text, ");
    while (body.size() < bytes) {
        const QJsonObject delta{{QStringLiteral("content"), words.left(8 + (*events % 48))}};
        const QJsonObject event{
            {QStringLiteral("id"), QStringLiteral("chatcmpl-123")},
            {QStringLiteral("object"), QStringLiteral("chat.completion.chunk")},
            {QStringLiteral("choices"),
             QJsonArray{QJsonObject{{QStringLiteral("index"), 0}, {QStringLiteral("delta"), delta}}}}};
        body += "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
        ++*events;
    }
    body += "data: [DONE]\n\n";
    return body;
}

double plainTransfer(quint16 port, qsizetype expected)
{
    QTcpSocket socket;
    QElapsedTimer timer;
    timer.start();
    socket.connectToHost(QHostAddress::LocalHost, port);
    qsizetype received = 0;
    QEventLoop loop;
    QObject::connect(&socket, &QTcpSocket::readyRead, [&] { received += socket.readAll().size(); });
    QObject::connect(&socket, &QTcpSocket::disconnected, &loop, &QEventLoop::quit);
    loop.exec();
    received += socket.readAll().size();
    const double seconds = timer.nsecsElapsed() / 1e9;
    if (received < expected)
        std::printf("plain transfer short: %lld of %lld bytes\n", qlonglong(received), qlonglong(expected));
    return seconds;
}

// The HTTP client alone: the same request, every byte read and dropped.
double httpOnly(const InfomaniakAPI &api)
{
    QNetworkRequest request(QUrl(api.baseURL() + QStringLiteral("/chat/completions")));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    QElapsedTimer timer;
    timer.start();
    QNetworkReply *reply = InfomaniakAPI::network().post(request, QByteArray("{}"));
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::readyRead, [reply] { reply->readAll(); });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    reply->readAll();
    reply->deleteLater();
    return timer.nsecsElapsed() / 1e9;
}

// The reader's own work without any network: cutting the bytes into lines and reading each event into the
// text of its read, as the chat turn's reader does.
double parserAlone(const QByteArray &body, qsizetype *pieces)
{
    QElapsedTimer timer;
    timer.start();
    SseLineSplitter splitter;
    qsizetype count = 0;
    QString text;
    const auto onLine = [&count, &text](QByteArrayView line) {
        const StreamEvent::Kind kind = StreamEvent::read(line, text);
        count += kind == StreamEvent::Kind::Piece;
        return kind != StreamEvent::Kind::Done;
    };
    constexpr qsizetype Read = 64 * 1024;
    for (qsizetype i = 0; i < body.size(); i += Read) {
        text = QString();
        text.reserve(Read);
        if (!splitter.feed(QByteArrayView(body).sliced(i, std::min(Read, body.size() - i)), onLine))
            break;
    }
    *pieces = count;
    return timer.nsecsElapsed() / 1e9;
}

// The JSON library by itself on every event's JSON, already cut out and padded: no line splitting, no
// check beyond its own, no text handed on. No reader that validates each event with it can be faster.
double libraryAlone(const QByteArray &body, qsizetype *documents)
{
    std::vector<std::string> events;
    for (const QByteArray &line : body.split('\n'))
        if (line.startsWith("data: {"))
            events.emplace_back(line.constData() + 6, size_t(line.size() - 6));
    for (std::string &event : events)
        event.reserve(event.size() + simdjson::SIMDJSON_PADDING);
    simdjson::dom::parser parser;
    QElapsedTimer timer;
    timer.start();
    qsizetype parsed = 0;
    for (const std::string &event : events)
        parsed += !parser.parse(event.data(), event.size(), false).error();
    *documents = parsed;
    return timer.nsecsElapsed() / 1e9;
}

struct AnswerText {
    QString text;
    qsizetype pieces = 0;
    std::optional<ProviderError> error;
};

// The stream read to its end the way the chat session reads it: what came together is appended at once.
AnswerText readAnswer(const std::shared_ptr<ChatStream> &stream)
{
    AnswerText answer;
    for (;;) {
        ChatStream::Item item = QCoro::waitFor(stream->next());
        if (item.kind != ChatStream::Item::Kind::Pieces) {
            if (item.kind == ChatStream::Item::Kind::Error)
                answer.error = item.error;
            return answer;
        }
        answer.text += item.pieces.text;
        answer.pieces += item.pieces.ends.size();
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    qsizetype events = 0;
    const QByteArray body = syntheticStream(50 * 1024 * 1024, &events);
    const QByteArray httpHead =
        "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n";
    const double megabytes = body.size() / (1024.0 * 1024.0);

    QThread serverThread;
    serverThread.start();
    BlobServer plain({}, body, false);
    BlobServer http(httpHead, body, true);
    const quint16 plainPort = plain.start(&serverThread);
    const quint16 httpPort = http.start(&serverThread);

    qputenv("QUILLMOOR_API_BASE_URL", QStringLiteral("http://127.0.0.1:%1/v1").arg(httpPort).toUtf8());
    const InfomaniakAPI api = InfomaniakAPI::fromEnvironment();
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    // Best of three; the HTTP client and the reader are also timed in CPU seconds of every thread (the
    // server's included), which on a loaded machine swing far less than the wall clock.
    double bestPlain = 1e9, bestStream = 1e9, bestHttp = 1e9, bestParser = 1e9, bestLibrary = 1e9;
    double leastHttpCpu = 1e9, leastStreamCpu = 1e9;
    qsizetype parsedPieces = 0;
    qsizetype libraryDocuments = 0;
    qsizetype pieces = 0;
    for (int round = 0; round < 3; ++round) {
        bestPlain = std::min(bestPlain, plainTransfer(plainPort, body.size()));
        double cpu = Bench::processCpuSeconds();
        bestHttp = std::min(bestHttp, httpOnly(api));
        leastHttpCpu = std::min(leastHttpCpu, Bench::processCpuSeconds() - cpu);
        bestParser = std::min(bestParser, parserAlone(body, &parsedPieces));
        bestLibrary = std::min(bestLibrary, libraryAlone(body, &libraryDocuments));
        QElapsedTimer timer;
        cpu = Bench::processCpuSeconds();
        timer.start();
        const AnswerText answer = readAnswer(
            api.sendStreamingMessage(QStringLiteral("x"), {}, {}, QStringLiteral("m"), QString(), {}));
        bestStream = std::min(bestStream, timer.nsecsElapsed() / 1e9);
        leastStreamCpu = std::min(leastStreamCpu, Bench::processCpuSeconds() - cpu);
        pieces = answer.pieces;
        if (answer.error)
            std::printf("stream error: %s\n", qPrintable(answer.error->fullText()));
    }
    Bench::report(QStringLiteral("stream size"), megabytes, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("events / pieces delivered"), double(events), QStringLiteral("events"));
    Bench::report(QStringLiteral("pieces delivered"), double(pieces), QStringLiteral("pieces"));
    Bench::report(QStringLiteral("plain loopback transfer (best of 3)"), megabytes / bestPlain,
                  QStringLiteral("MiB/s"));
    Bench::report(QStringLiteral("HTTP client alone (best of 3)"), megabytes / bestHttp,
                  QStringLiteral("MiB/s"));
    Bench::report(QStringLiteral("chat stream reader (best of 3)"), megabytes / bestStream,
                  QStringLiteral("MiB/s"));
    Bench::report(QStringLiteral("line splitting and event reading alone (best of 3)"),
                  megabytes / bestParser, QStringLiteral("MiB/s"));
    Bench::report(QStringLiteral("JSON library alone on every event (best of 3)"), megabytes / bestLibrary,
                  QStringLiteral("MiB/s"));
    Bench::report(QStringLiteral("ratio reader time / socket time"), bestStream / bestPlain,
                  QStringLiteral("x"));
    Bench::report(QStringLiteral("ratio parser time / socket time"), bestParser / bestPlain,
                  QStringLiteral("x"));
    Bench::report(QStringLiteral("ratio JSON library time / socket time"), bestLibrary / bestPlain,
                  QStringLiteral("x"));
    // The HTTP client's threads and the event reading must both run; however they were spread over the
    // cores, a reader with this event reading cannot take less wall time than their CPU time shared out
    // over every core. With the JSON library alone in its place, the same sum gives the floor of any
    // reader that checks every event with it.
    const int cores = std::max(1, QThread::idealThreadCount());
    Bench::report(QStringLiteral("ratio reader CPU time (all threads) / socket time"),
                  leastStreamCpu / bestPlain, QStringLiteral("x"));
    Bench::report(QStringLiteral("ratio HTTP client CPU time (all threads) / socket time"),
                  leastHttpCpu / bestPlain, QStringLiteral("x"));
    Bench::report(QStringLiteral("cores"), double(cores), QStringLiteral(""));
    Bench::report(QStringLiteral("ratio floor, this event reading: (HTTP CPU + parser) / cores"),
                  (leastHttpCpu + bestParser) / cores / bestPlain, QStringLiteral("x"));
    Bench::report(QStringLiteral("ratio floor, JSON library alone: (HTTP CPU + library) / cores"),
                  (leastHttpCpu + bestLibrary) / cores / bestPlain, QStringLiteral("x"));
    if (libraryDocuments != events)
        std::printf("JSON library read %lld of %lld events\n", qlonglong(libraryDocuments),
                    qlonglong(events));
    serverThread.quit();
    serverThread.wait();
    return 0;
}
