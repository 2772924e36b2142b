#include "TestProvider.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {

using Response = TestProvider::Response;

// A friendly echo in Markdown: the question, the model, the history's length, the pictures and whether
// knowledge came with it.
Response defaultChatAnswer(const QJsonObject &request, int delayMs)
{
    const QJsonArray messages = request["messages"].toArray();
    const QJsonValue content = messages.at(messages.size() - 1)["content"];
    const QJsonArray parts = content.toArray();
    const QString question = (content.isArray() ? parts.at(0)["text"] : content)
                                 .toString()
                                 .section(QStringLiteral("\n\n--- Dokument: "), 0, 0)
                                 .trimmed();
    QString answer =
        QStringLiteral("## Testanbieter\n\nDu hast geschrieben: **%1**\n\n- Modell: `%2`\n"
                       "- Verlauf: %3 Nachrichten\n")
            .arg(question.left(200), request["model"].toString(), QString::number(messages.size()));
    if (parts.size() > 1)
        answer += QStringLiteral("- Bilder: %1\n").arg(parts.size() - 1);
    answer += messages.at(0)["content"].toString().startsWith(QStringLiteral("<database_schema>"))
                  ? QStringLiteral("- Wissen: *aus deinen Dateien*\n")
                  : QStringLiteral("- Wissen: keines\n");
    answer += QStringLiteral("\nDies ist eine Antwort des lokalen Testanbieters.");
    static const QRegularExpression wordEnd(QStringLiteral("(?<=\\s)"));
    Response r = Response::sse(answer.split(wordEnd, Qt::SkipEmptyParts), true, delayMs);
    r.pieces.prepend({": test provider\n\n", 0});
    return r;
}

// Hashed bags of words: a word is a run of letters and digits, found by hand, as a regular expression
// allocates per word and the sanitizer builds embed thousands of chunks.
Response defaultEmbeddings(const QJsonObject &request)
{
    constexpr int Dimensions = 64;
    QJsonArray data;
    for (const QJsonValue &input : request["input"].toArray()) {
        QList<double> v(Dimensions, 0.0);
        const std::u32string codes = input.toString().toLower().toStdU32String();
        for (size_t start = 0, at = 0; at <= codes.size(); ++at) {
            if (at < codes.size() && QChar::isLetterOrNumber(codes[at]))
                continue;
            if (at > start) {
                const QByteArray hash = QCryptographicHash::hash(
                    QString::fromUcs4(codes.data() + start, qsizetype(at - start)).toUtf8(),
                    QCryptographicHash::Md5);
                v[int(quint8(hash[0]) | (quint8(hash[1]) << 8)) % Dimensions] += 1.0;
            }
            start = at + 1;
        }
        v[Dimensions - 1] += 0.01; // never the zero vector
        double norm = 0;
        for (double x : v)
            norm += x * x;
        QJsonArray vector;
        for (double x : v)
            vector.append(x / std::sqrt(norm));
        data.append(QJsonObject{{"object", "embedding"}, {"index", int(data.size())}, {"embedding", vector}});
    }
    return Response::body(
        200, QJsonDocument(QJsonObject{{"object", "list"}, {"data", data}}).toJson(QJsonDocument::Compact));
}

} // namespace

Response Response::sse(const QStringList &contents, bool done, int delayMs)
{
    Response r;
    for (const QString &content : contents) {
        const QJsonObject choice{{"index", 0}, {"delta", QJsonObject{{"content", content}}}};
        const QJsonObject event{{"object", "chat.completion.chunk"}, {"choices", QJsonArray{choice}}};
        r.pieces.append({"data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n", delayMs});
    }
    if (done)
        r.pieces.append({"data: [DONE]\n\n", delayMs});
    return r;
}

Response Response::body(int status, const QByteArray &bytes, const QByteArray &contentType)
{
    Response r;
    r.status = status;
    r.contentType = contentType;
    r.pieces.append({bytes, 0});
    return r;
}

Response Response::modelList(const QStringList &ids)
{
    QJsonArray data;
    for (const QString &id : ids)
        data.append(
            QJsonObject{{"id", id}, {"object", "model"}, {"created", 0}, {"owned_by", "test-provider"}});
    return body(
        200, QJsonDocument(QJsonObject{{"object", "list"}, {"data", data}}).toJson(QJsonDocument::Compact));
}

TestProvider::TestProvider(QObject *parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
{
    connect(m_server, &QTcpServer::newConnection, this, &TestProvider::onNewConnection);
}

QList<TestProvider::Request> TestProvider::requests(const QByteArray &pathSuffix) const
{
    QList<Request> result;
    for (const Request &request : m_requests)
        if (request.path.endsWith(pathSuffix))
            result.append(request);
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
    const auto scripted = std::find_if(m_script.begin(), m_script.end(),
                                       [&](const auto &entry) { return request.path.endsWith(entry.first); });
    Response response;
    if (scripted != m_script.end()) {
        response = scripted->second;
        m_script.erase(scripted);
    } else if (request.path.endsWith("/embeddings")) {
        response = defaultEmbeddings(request.json());
        response.pieces.first().delayMs = m_defaultDelayMs; // a provider that takes its time to answer
    } else if (request.path.endsWith("/chat/completions")) {
        response = defaultChatAnswer(request.json(), m_defaultDelayMs);
    } else if (request.method == "GET" && request.path.endsWith("/models") && !m_modelList.isEmpty()) {
        response = Response::modelList(m_modelList);
    } else {
        response = Response::body(404, R"({"error":{"message":"Unknown path","code":"not_found"}})");
    }
    if (response.neverAnswer)
        return;

    // Clients read only the status code, not the reason phrase.
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) +
                      (response.status == 200 ? " OK" : " Error") +
                      "\r\nContent-Type: " + response.contentType + "\r\n";
    for (const auto &[name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    // An event stream ends when the server closes; other bodies announce their length.
    if (response.contentType != "text/event-stream" || response.abortAfterPieces) {
        qsizetype total = response.abortAfterPieces ? 1000 : 0; // promise more than will come
        for (const Piece &p : response.pieces)
            total += p.bytes.size();
        head += "Content-Length: " + QByteArray::number(total) + "\r\n";
    }
    socket->write(head + "Connection: close\r\n\r\n");
    if (!response.stallAfterHeads)
        writePieces(socket, response, 0);
}

void TestProvider::writePieces(QTcpSocket *socket, Response response, int index)
{
    for (; index < response.pieces.size(); ++index) {
        const Piece piece = response.pieces[index];
        if (piece.delayMs > 0) {
            response.pieces[index].delayMs = 0;
            QTimer::singleShot(piece.delayMs, this, [this, guard = QPointer(socket), response, index] {
                if (guard)
                    writePieces(guard, response, index);
            });
            return;
        }
        socket->write(piece.bytes);
    }
    if (response.abortAfterPieces) {
        socket->flush();
        socket->abort();
        return;
    }
    socket->disconnectFromHost();
}
