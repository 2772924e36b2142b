#include "TestProvider.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cmath>
#include <optional>

namespace {

QByteArray reasonPhrase(int status)
{
    static const QHash<int, QByteArray> phrases{{200, "OK"},
                                                {307, "Temporary Redirect"},
                                                {308, "Permanent Redirect"},
                                                {400, "Bad Request"},
                                                {401, "Unauthorized"},
                                                {404, "Not Found"},
                                                {429, "Too Many Requests"},
                                                {500, "Internal Server Error"},
                                                {502, "Bad Gateway"}};
    return phrases.value(status, "Status");
}

QByteArray sseEvent(const QString &content)
{
    QJsonObject delta{{QStringLiteral("content"), content}};
    QJsonObject choice{{QStringLiteral("index"), 0}, {QStringLiteral("delta"), delta}};
    QJsonObject event{{QStringLiteral("object"), QStringLiteral("chat.completion.chunk")},
                      {QStringLiteral("choices"), QJsonArray{choice}}};
    return "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
}

} // namespace

TestProvider::Response TestProvider::Response::sse(const QStringList &contents, bool done, int delayMs)
{
    Response r;
    for (const QString &c : contents)
        r.pieces.append({sseEvent(c), delayMs});
    if (done)
        r.pieces.append({"data: [DONE]\n\n", delayMs});
    return r;
}

TestProvider::Response TestProvider::Response::json(int status, const QByteArray &body)
{
    return text(status, body, "application/json");
}

TestProvider::Response TestProvider::Response::text(int status, const QByteArray &body,
                                                    const QByteArray &contentType)
{
    Response r;
    r.status = status;
    r.contentType = contentType;
    r.framing = Framing::ContentLength;
    r.pieces.append({body, 0});
    return r;
}

TestProvider::Response TestProvider::Response::modelList(const QStringList &ids)
{
    QJsonArray data;
    for (const QString &id : ids)
        data.append(QJsonObject{{QStringLiteral("id"), id},
                                {QStringLiteral("object"), QStringLiteral("model")},
                                {QStringLiteral("created"), 0},
                                {QStringLiteral("owned_by"), QStringLiteral("test-provider")}});
    const QJsonObject body{{QStringLiteral("object"), QStringLiteral("list")},
                           {QStringLiteral("data"), data}};
    return json(200, QJsonDocument(body).toJson(QJsonDocument::Compact));
}

TestProvider::Response TestProvider::Response::redirect(int status, const QByteArray &location)
{
    Response r = text(status, "<html><body>Moved to " + location + "</body></html>\n", "text/html");
    r.headers.append({"Location", location});
    return r;
}

QJsonObject TestProvider::Request::json() const
{
    return QJsonDocument::fromJson(body).object();
}

TestProvider::TestProvider(QObject *parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
{
    connect(m_server, &QTcpServer::newConnection, this, &TestProvider::onNewConnection);
}

TestProvider::~TestProvider() = default;

bool TestProvider::listen(const QHostAddress &address, quint16 port)
{
    return m_server->listen(address, port);
}

quint16 TestProvider::port() const
{
    return m_server->serverPort();
}

QUrl TestProvider::baseUrl() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1/v1").arg(port()));
}

void TestProvider::enqueue(const QByteArray &pathSuffix, const Response &response)
{
    m_script.append({pathSuffix, response});
}

QList<TestProvider::Request> TestProvider::requests(const QByteArray &pathSuffix) const
{
    QList<Request> result;
    for (const Request &r : m_requests)
        if (r.path.endsWith(pathSuffix))
            result.append(r);
    return result;
}

void TestProvider::onNewConnection()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        m_sockets.insert(socket);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_buffers.remove(socket);
            m_sockets.remove(socket);
            socket->deleteLater();
        });
    }
}

void TestProvider::onReadyRead(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const qsizetype headEnd = buffer.indexOf("\r\n\r\n");
    if (headEnd < 0)
        return;
    Request request;
    const QList<QByteArray> lines = buffer.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                   lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length").toLongLong();
    if (buffer.size() < headEnd + 4 + length)
        return;
    request.body = buffer.mid(headEnd + 4, length);
    buffer.remove(0, headEnd + 4 + length);
    m_requests.append(request);
    emit requestReceived(request);
    respond(socket, request);
}

void TestProvider::respond(QTcpSocket *socket, const Request &request)
{
    std::optional<Response> scripted;
    for (qsizetype i = 0; i < m_script.size(); ++i) {
        if (request.path.endsWith(m_script[i].first)) {
            scripted = m_script.takeAt(i).second;
            break;
        }
    }
    Response response;
    if (scripted) {
        response = *scripted;
    } else if (request.path.endsWith("/embeddings")) {
        response = defaultEmbeddings(request.json());
        response.pieces.first().delayMs = m_defaultDelayMs; // a provider that takes its time to answer
    } else if (request.path.endsWith("/chat/completions")) {
        response = defaultChatAnswer(request.json(), m_defaultDelayMs);
    } else if (request.method == "GET" && request.path.endsWith("/models") && !m_modelList.isEmpty()) {
        response = Response::modelList(m_modelList);
    } else {
        response = Response::json(404, R"({"error":{"message":"Unknown path","code":"not_found"}})");
    }

    if (response.neverAnswer)
        return;

    QByteArray head =
        "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reasonPhrase(response.status) + "\r\n";
    head += "Content-Type: " + response.contentType + "\r\n";
    for (const auto &[name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    if (response.framing == Framing::Chunked) {
        head += "Transfer-Encoding: chunked\r\n";
    } else if (response.framing == Framing::ContentLength) {
        qsizetype total = 0;
        for (const Piece &p : response.pieces)
            total += p.bytes.size();
        if (response.abortAfterPieces)
            total += 1000; // promise more than will come
        head += "Content-Length: " + QByteArray::number(total) + "\r\n";
    }
    head += "Connection: close\r\n\r\n";
    socket->write(head);
    if (response.stallAfterHeads)
        return;
    writePieces(socket, response, 0);
}

void TestProvider::writePieces(QTcpSocket *socket, Response response, int index)
{
    QPointer<QTcpSocket> guard(socket);
    while (index < response.pieces.size()) {
        const Piece &piece = response.pieces[index];
        if (piece.delayMs > 0) {
            Response rest = response;
            rest.pieces[index].delayMs = 0;
            QTimer::singleShot(piece.delayMs, this, [this, guard, rest, index] {
                if (guard)
                    writePieces(guard, rest, index);
            });
            return;
        }
        if (response.framing == Framing::Chunked)
            socket->write(QByteArray::number(piece.bytes.size(), 16) + "\r\n" + piece.bytes + "\r\n");
        else
            socket->write(piece.bytes);
        ++index;
    }
    finish(socket, response);
}

void TestProvider::finish(QTcpSocket *socket, const Response &response)
{
    if (response.abortAfterPieces) {
        socket->flush();
        socket->abort();
        return;
    }
    if (response.framing == Framing::Chunked)
        socket->write("0\r\n\r\n");
    socket->disconnectFromHost();
}

TestProvider::Response TestProvider::defaultChatAnswer(const QJsonObject &request, int delayMs)
{
    const QJsonArray messages = request.value(QStringLiteral("messages")).toArray();
    const QJsonValue content =
        messages.isEmpty() ? QJsonValue() : messages.last().toObject().value(QStringLiteral("content"));
    QString question = content.isArray()
                           ? content.toArray().first().toObject().value(QStringLiteral("text")).toString()
                           : content.toString();
    const int images = content.isArray() ? int(content.toArray().size()) - 1 : 0;
    const bool knowledge = messages.first()
                               .toObject()
                               .value(QStringLiteral("content"))
                               .toString()
                               .startsWith(QStringLiteral("<database_schema>"));
    question = question.section(QStringLiteral("\n\n--- Dokument: "), 0, 0).trimmed();

    QString answer =
        QStringLiteral("## Testanbieter\n\nDu hast geschrieben: **%1**\n\n").arg(question.left(200));
    answer += QStringLiteral("- Modell: `%1`\n").arg(request.value(QStringLiteral("model")).toString());
    answer += QStringLiteral("- Verlauf: %1 Nachrichten\n").arg(messages.size());
    if (images > 0)
        answer += QStringLiteral("- Bilder: %1\n").arg(images);
    answer +=
        knowledge ? QStringLiteral("- Wissen: *aus deinen Dateien*\n") : QStringLiteral("- Wissen: keines\n");
    answer += QStringLiteral("\nDies ist eine Antwort des lokalen Testanbieters.");

    QStringList pieces;
    static const QRegularExpression wordEnd(QStringLiteral("(?<=\\s)"));
    for (const QString &p : answer.split(wordEnd, Qt::SkipEmptyParts))
        pieces.append(p);
    Response r = Response::sse(pieces, true, delayMs);
    r.pieces.prepend({": test provider\n\n", 0});
    return r;
}

QList<double> TestProvider::bagOfWordsVector(const QString &text, int dimensions)
{
    QList<double> v(dimensions, 0.0);
    const auto count = [&](QStringView word) {
        const QByteArray hash = QCryptographicHash::hash(word.toUtf8(), QCryptographicHash::Md5);
        v[int(quint8(hash[0]) | (quint8(hash[1]) << 8)) % dimensions] += 1.0;
    };
    // A word is a run of letters and digits. Walked by hand: a regular expression costs a match object per
    // word, which the sanitizer builds pay for with a stack trace each.
    const QString lower = text.toLower();
    qsizetype start = -1;
    for (qsizetype at = 0; at < lower.size();) {
        char32_t c = lower.at(at).unicode();
        qsizetype width = 1;
        if (QChar::isHighSurrogate(c) && at + 1 < lower.size() && lower.at(at + 1).isLowSurrogate()) {
            c = QChar::surrogateToUcs4(lower.at(at), lower.at(at + 1));
            width = 2;
        }
        if (QChar::isLetterOrNumber(c)) {
            if (start < 0)
                start = at;
        } else if (start >= 0) {
            count(QStringView(lower).sliced(start, at - start));
            start = -1;
        }
        at += width;
    }
    if (start >= 0)
        count(QStringView(lower).sliced(start));
    v[dimensions - 1] += 0.01; // never the zero vector
    double norm = 0;
    for (double x : v)
        norm += x * x;
    norm = std::sqrt(norm);
    for (double &x : v)
        x /= norm;
    return v;
}

TestProvider::Response TestProvider::defaultEmbeddings(const QJsonObject &request)
{
    QJsonArray data;
    int index = 0;
    for (const QJsonValue &input : request.value(QStringLiteral("input")).toArray()) {
        QJsonArray vector;
        for (double x : bagOfWordsVector(input.toString()))
            vector.append(x);
        data.append(QJsonObject{{QStringLiteral("object"), QStringLiteral("embedding")},
                                {QStringLiteral("index"), index++},
                                {QStringLiteral("embedding"), vector}});
    }
    QJsonObject body{{QStringLiteral("object"), QStringLiteral("list")}, {QStringLiteral("data"), data}};
    return Response::json(200, QJsonDocument(body).toJson(QJsonDocument::Compact));
}
