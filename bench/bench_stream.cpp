// Reading a 50 MB event stream through the chat turn's reader, against a plain loopback transfer of the same
// bytes in the same run. The ratio (reader time / socket time) is the figure.
#include "BenchUtil.h"
#include "Services/InfomaniakAPI.h"
#include "Services/SseLineSplitter.h"
#include "Services/StreamEvent.h"
#include "StreamCollector.h"

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

// The reader's own work without any network: cutting the bytes into lines and reading each event.
double parserAlone(const QByteArray &body, qsizetype *pieces)
{
    QElapsedTimer timer;
    timer.start();
    SseLineSplitter splitter;
    qsizetype count = 0;
    const auto onLine = [&count](QByteArrayView line) {
        const StreamEvent event = StreamEvent::parse(line);
        count += event.kind == StreamEvent::Kind::Piece;
        return event.kind != StreamEvent::Kind::Done;
    };
    constexpr qsizetype Read = 64 * 1024;
    for (qsizetype i = 0; i < body.size(); i += Read)
        if (!splitter.feed(QByteArrayView(body).sliced(i, std::min(Read, body.size() - i)), onLine))
            break;
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

    double bestPlain = 1e9, bestStream = 1e9, bestHttp = 1e9, bestParser = 1e9, bestLibrary = 1e9;
    qsizetype parsedPieces = 0;
    qsizetype libraryDocuments = 0;
    qsizetype pieces = 0;
    for (int round = 0; round < 3; ++round) {
        bestPlain = std::min(bestPlain, plainTransfer(plainPort, body.size()));
        bestHttp = std::min(bestHttp, httpOnly(api));
        bestParser = std::min(bestParser, parserAlone(body, &parsedPieces));
        bestLibrary = std::min(bestLibrary, libraryAlone(body, &libraryDocuments));
        QElapsedTimer timer;
        timer.start();
        const CollectedStream result = readAll(
            api.sendStreamingMessage(QStringLiteral("x"), {}, {}, QStringLiteral("m"), QString(), {}));
        bestStream = std::min(bestStream, timer.nsecsElapsed() / 1e9);
        pieces = result.pieces.size();
        if (result.error)
            std::printf("stream error: %s\n", qPrintable(result.error->fullText()));
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
    if (libraryDocuments != events)
        std::printf("JSON library read %lld of %lld events\n", qlonglong(libraryDocuments),
                    qlonglong(events));
    serverThread.quit();
    serverThread.wait();
    return 0;
}
