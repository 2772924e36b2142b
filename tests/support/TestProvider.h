#pragma once

#include <QByteArray>
#include <QHash>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPair>
#include <QSet>
#include <QStringList>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// A loopback server that speaks the provider's OpenAI-compatible API. Tests script its answers (status,
// headers, body pieces with pauses, abrupt closes, silence) and read back every request it received;
// with nothing scripted it answers like a small real provider, so the app can be tried without an account.
class TestProvider : public QObject {
    Q_OBJECT
public:
    struct Piece {
        QByteArray bytes;
        int delayMs = 0; // pause before this piece is written
    };

    struct Response {
        int status = 200;
        QByteArray contentType = "text/event-stream";
        QList<QPair<QByteArray, QByteArray>> headers;
        QList<Piece> pieces;
        bool neverAnswer = false;      // read the request and say nothing at all
        bool stallAfterHeads = false;  // send the head and then nothing, keeping the connection open
        bool abortAfterPieces = false; // drop the connection after the pieces, short of an announced length

        static Response sse(const QStringList &contents, bool done = true, int delayMs = 0);
        // A body as it is (clients do not read its type).
        static Response body(int status, const QByteArray &bytes,
                             const QByteArray &contentType = "application/json");
        static Response modelList(const QStringList &ids); // as OpenAI lists them
    };

    struct Request {
        QByteArray method;
        QByteArray path;
        QHash<QByteArray, QByteArray> headers; // names lower-cased
        QByteArray body;
        QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
    };

    explicit TestProvider(QObject *parent = nullptr);

    bool listen(const QHostAddress &address = QHostAddress::LocalHost, quint16 port = 0)
    {
        return m_server->listen(address, port);
    }
    // The OpenAI-compatible root, for QUILLMOOR_API_BASE_URL.
    QUrl baseUrl() const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1/v1").arg(m_server->serverPort()));
    }

    // Scripted answers, taken in order; a path is matched by its ending.
    void enqueueChat(const Response &response) { m_script.append({"/chat/completions", response}); }
    void enqueueEmbeddings(const Response &response) { m_script.append({"/embeddings", response}); }
    void enqueueModels(const Response &response) { m_script.append({"/models", response}); }
    // Drops answers a test scripted but never asked for, so they cannot answer the next test's questions.
    void clearScript() { m_script.clear(); }

    const QList<Request> &requests() const { return m_requests; }
    QList<Request> requests(const QByteArray &pathSuffix) const;
    void clearRequests() { m_requests.clear(); }

    // Unscripted, the chat answer streams back a friendly echo word by word, embeddings are hashed bags of
    // words, so similar texts get similar vectors, and the model list names DefaultModels (any model name
    // is answered alike; an empty list set here answers 404, as servers without a list do).
    static inline const QStringList DefaultModels = {QStringLiteral("qwen3"), QStringLiteral("test-echo")};
    // Pause between the unscripted chat answer's pieces, and before the unscripted embeddings answer.
    void setDefaultDelayMs(int ms) { m_defaultDelayMs = ms; }
    void setModelList(const QStringList &ids) { m_modelList = ids; }
    // Connections from clients that are still open.
    int openConnections() const { return int(m_sockets.size()); }

signals:
    void requestReceived(const TestProvider::Request &request);

private:
    void onNewConnection();
    void onReadyRead(QTcpSocket *socket);
    void respond(QTcpSocket *socket, const Request &request);
    void writePieces(QTcpSocket *socket, Response response, int index);

    QTcpServer *m_server;
    QHash<QTcpSocket *, QByteArray> m_buffers;
    QSet<QTcpSocket *> m_sockets;
    QList<QPair<QByteArray, Response>> m_script;
    QList<Request> m_requests;
    int m_defaultDelayMs = 0;
    QStringList m_modelList = DefaultModels;
};
