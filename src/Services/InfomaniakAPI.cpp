#include "InfomaniakAPI.h"

#include "Core/Console.h"
#include "Services/ChatRequest.h"
#include "Services/ChatResponseReader.h"
#include "Services/NetworkShutdown.h"
#include "Services/Retriever.h"
#include "Services/TextExtraction.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QTimer>
#include <QtConcurrent>

#include <qcoro/qcorofuture.h>

namespace {

QString providerRoot()
{
    return QStringLiteral(QUILLMOOR_PROVIDER_ROOT);
}

// Lets the caller return before any work of the turn starts, as a background task would.
struct NextEventLoopTurn {
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> handle) const
    {
        QTimer::singleShot(0, QCoreApplication::instance(), [handle] { handle.resume(); });
    }
    void await_resume() const noexcept {}
};

// Started outside the coroutine: g++ 12 mishandles lambdas that capture a coroutine's locals.
QFuture<ChatRequest::Body> buildInBackground(const QString &model, const QString &systemMessage,
                                             const QList<HistoryEntry> &history, const QString &message,
                                             const QList<Attachment> &attachments)
{
    return QtConcurrent::run(
        [=] { return ChatRequest::build(model, systemMessage, history, message, attachments); });
}

} // namespace

InfomaniakAPI::InfomaniakAPI(const QString &apiKey, const QString &productId)
    : m_apiKey(apiKey)
    , m_productId(productId)
    , m_baseURL(providerRoot() + QStringLiteral("/2/ai/") + productId + QStringLiteral("/openai/v1"))
{
}

InfomaniakAPI InfomaniakAPI::fromEnvironment()
{
    QString base = qEnvironmentVariable("QUILLMOOR_API_BASE_URL");
    if (base.isEmpty())
        base = qEnvironmentVariable("OPENAI_BASE_URL");
    QString key = QStringLiteral(QUILLMOOR_API_TOKEN);
    if (qEnvironmentVariableIsSet("QUILLMOOR_API_KEY"))
        key = qEnvironmentVariable("QUILLMOOR_API_KEY");
    else if (!base.isEmpty() && qEnvironmentVariableIsSet("OPENAI_API_KEY"))
        key = qEnvironmentVariable("OPENAI_API_KEY");

    InfomaniakAPI api(key, QStringLiteral(QUILLMOOR_PRODUCT_ID));
    if (!base.isEmpty()) {
        while (base.endsWith(QLatin1Char('/')))
            base.chop(1);
        api.m_baseURL = base;
        api.m_customEndpoint = true;
    }
    const QString embeddingModel = qEnvironmentVariable("QUILLMOOR_EMBEDDING_MODEL");
    if (!embeddingModel.isEmpty())
        api.m_embeddingModel = embeddingModel;
    return api;
}

namespace {

QPointer<QNetworkAccessManager> &sharedManager()
{
    static QPointer<QNetworkAccessManager> manager;
    return manager;
}

} // namespace

QNetworkAccessManager &InfomaniakAPI::network()
{
    QPointer<QNetworkAccessManager> &manager = sharedManager();
    if (!manager) {
        manager = new QNetworkAccessManager(QCoreApplication::instance());
        manager->setAutoDeleteReplies(false);
    }
    return *manager;
}

void NetworkShutdown::closeConnections()
{
    // Requests still under way end now, so the calls awaiting them finish and let go of what they hold.
    if (QNetworkAccessManager *manager = sharedManager().data()) {
        const QList<QNetworkReply *> replies = manager->findChildren<QNetworkReply *>();
        QList<QPointer<QNetworkReply>> running(replies.begin(), replies.end());
        for (const QPointer<QNetworkReply> &reply : std::as_const(running))
            if (reply && reply->isRunning())
                reply->abort();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    delete sharedManager().data();
    // The manager's connection thread hands the last of its clean-up back as queued events.
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

QNetworkRequest InfomaniakAPI::request(const QString &endpoint) const
{
    QNetworkRequest request(QUrl(m_baseURL + endpoint));
    request.setTransferTimeout(m_transferTimeoutMs);
    request.setRawHeader("Authorization", "Bearer " + m_apiKey.toUtf8());
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    return request;
}

std::optional<QString> InfomaniakAPI::extractText(const QUrl &url)
{
    return TextExtraction::forAttachment(url.toLocalFile());
}

std::shared_ptr<ChatStream>
InfomaniakAPI::sendStreamingMessage(const QString &message, const QList<Attachment> &attachments,
                                    const QList<DocumentChunk> &externalChunks, const QString &model,
                                    const std::optional<QString> &systemPrompt,
                                    const QList<HistoryEntry> &conversationHistory) const
{
    auto stream = ChatStream::create();
    runTurn(*this, stream, message, attachments, externalChunks, model, systemPrompt, conversationHistory);
    return stream;
}

QCoro::Task<> InfomaniakAPI::runTurn(InfomaniakAPI api, std::shared_ptr<ChatStream> stream, QString message,
                                     QList<Attachment> attachments, QList<DocumentChunk> externalChunks,
                                     QString model, std::optional<QString> systemPrompt,
                                     QList<HistoryEntry> history)
{
    co_await NextEventLoopTurn{};
    Console::line(QStringLiteral("Stream: Starting request for model ") + model +
                  QStringLiteral("... with ") + QString::number(attachments.size()) +
                  QStringLiteral(" attachments"));

    // g++ 12 destroys temporaries inside a co_await expression twice: every argument is a named value.
    const QString promptForKnowledge = systemPrompt.value_or(DefaultSystemPrompt);
    auto retrieval = Retriever::knowledgeSystemMessage(api, message, externalChunks, promptForKnowledge);
    const std::optional<QString> knowledge = co_await std::move(retrieval);
    if (stream->isCancelled())
        co_return;
    QString systemMessage;
    if (knowledge)
        systemMessage = *knowledge;
    else
        systemMessage = ChatRequest::plainSystemMessage(systemPrompt);

    // Reading documents and re-encoding pictures can take seconds; the main thread only waits for it.
    QFuture<ChatRequest::Body> building =
        buildInBackground(model, systemMessage, history, message, attachments);
    const ChatRequest::Body body = co_await building;
    if (stream->isCancelled())
        co_return;

    ChatResponseReader::start(network().post(api.request(QStringLiteral("/chat/completions")), body.json),
                              stream);
}
