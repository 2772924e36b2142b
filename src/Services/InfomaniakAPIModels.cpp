// The model list of a user's own server; the chat turn lives in InfomaniakAPI.cpp.
#include "Services/InfomaniakAPI.h"

#include "Services/ServerModels.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QtConcurrent/QtConcurrentRun>

#include <qcoro/qcorofuture.h>
#include <qcoro/qcoronetworkreply.h>

#include <memory>

namespace {

// Started outside the coroutine: g++ 12 mishandles lambdas that capture a coroutine's locals.
QFuture<std::variant<QStringList, ProviderError>> decodeInBackground(const QByteArray &body)
{
    return QtConcurrent::run(ServerModels::decode, body);
}

} // namespace

QCoro::Task<ModelsResult> InfomaniakAPI::listModels() const
{
    QNetworkRequest request(QUrl(baseURL() + QStringLiteral("/models")));
    request.setTransferTimeout(transferTimeoutMs());
    request.setRawHeader("Authorization", "Bearer " + apiKey().toUtf8());

    std::unique_ptr<QNetworkReply> reply(network().get(request));
    co_await reply.get();

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid())
        co_return ModelsResult{
            {}, ProviderError{QStringLiteral("QNetworkReply"), int(reply->error()), reply->errorString()}};
    if (status.toInt() != 200)
        co_return ModelsResult{
            {}, ProviderError::api(status.toInt(), QStringLiteral("HTTP ") + status.toString())};

    // A server behind a gateway may list hundreds of models; the main thread only waits for the reading.
    const QByteArray body = reply->readAll();
    auto decoding = decodeInBackground(body);
    auto decoded = co_await decoding;
    if (auto *failure = std::get_if<ProviderError>(&decoded))
        co_return ModelsResult{{}, *failure};
    co_return ModelsResult{std::get<QStringList>(std::move(decoded)), std::nullopt};
}
