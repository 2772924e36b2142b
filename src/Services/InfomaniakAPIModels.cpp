// The model list of a user's own server; the chat turn lives in InfomaniakAPI.cpp.
#include "Services/InfomaniakAPI.h"

#include "Services/ProviderReply.h"
#include "Services/ServerModels.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
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
    ProviderReply::Owned reply(network().get(request(QStringLiteral("/models"))));
    co_await reply.get();

    // Read as the other calls read their replies: a redirect Qt follows is no answer of its own.
    const std::optional<int> status = ProviderReply::finalStatus(*reply);
    if (!status)
        co_return ModelsResult{{}, ProviderReply::transportError(*reply)};
    if (*status != 200)
        co_return ModelsResult{
            {}, ProviderError::api(*status, QStringLiteral("HTTP ") + QString::number(*status))};
    if (reply->error() != QNetworkReply::NoError)
        co_return ModelsResult{{}, ProviderReply::transportError(*reply)};

    // A server behind a gateway may list hundreds of models; the main thread only waits for the reading.
    const QByteArray body = ProviderReply::readRest(*reply);
    auto decoding = decodeInBackground(body);
    auto decoded = co_await decoding;
    if (auto *failure = std::get_if<ProviderError>(&decoded))
        co_return ModelsResult{{}, *failure};
    co_return ModelsResult{std::get<QStringList>(std::move(decoded)), std::nullopt};
}
