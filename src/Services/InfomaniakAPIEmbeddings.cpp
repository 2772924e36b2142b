// The embeddings call of the provider client; the chat turn lives in InfomaniakAPI.cpp.
#include "Services/InfomaniakAPI.h"

#include "Core/Console.h"
#include "Services/EmbeddingResponse.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QStringDecoder>

#include <qcoro/qcoronetworkreply.h>

#include <memory>

namespace {

// Errors that come from the HTTP status line rather than from the connection; those are answered below
// with the provider's own error, everything else is the transport's.
bool isHttpStatusError(QNetworkReply::NetworkError error)
{
    return (error >= QNetworkReply::ContentAccessDenied && error <= QNetworkReply::UnknownContentError) ||
           (error >= QNetworkReply::InternalServerError && error <= QNetworkReply::UnknownServerError);
}

QString bodyText(const QByteArray &body)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(body);
    return decoder.hasError() ? QStringLiteral("Unknown error") : text;
}

} // namespace

QCoro::Task<EmbeddingsResult> InfomaniakAPI::createEmbeddings(const QStringList &texts, const QString &model,
                                                              const QString &mode) const
{
    Console::line(
        QStringLiteral("🔢 Embedding %1 texts with model=%2 mode=%3").arg(texts.size()).arg(model, mode));

    QNetworkRequest request(QUrl(baseURL() + QStringLiteral("/embeddings")));
    request.setTransferTimeout(transferTimeoutMs());
    request.setRawHeader("Authorization", "Bearer " + apiKey().toUtf8());
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));

    const QJsonObject body{{QStringLiteral("model"), model},
                           {QStringLiteral("input"), QJsonArray::fromStringList(texts)},
                           {QStringLiteral("mode"), mode}};

    // The reply is owned here, so a caller that goes away mid-call leaves nothing behind.
    std::unique_ptr<QNetworkReply> reply(
        network().post(request, QJsonDocument(body).toJson(QJsonDocument::Compact)));
    co_await reply.get();

    const QVariant statusAttribute = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const QNetworkReply::NetworkError error = reply->error();
    if (error != QNetworkReply::NoError && (!statusAttribute.isValid() || !isHttpStatusError(error)))
        co_return EmbeddingsResult{
            {}, ProviderError{QStringLiteral("QNetworkReply"), int(error), reply->errorString()}};

    const QByteArray answer = reply->readAll();
    const int status = statusAttribute.isValid() ? statusAttribute.toInt() : -1;
    if (status == 200) {
        auto decoded = EmbeddingResponse::decode(answer);
        if (auto *failure = std::get_if<ProviderError>(&decoded))
            co_return EmbeddingsResult{{}, *failure};
        auto vectors = std::get<QList<QList<double>>>(std::move(decoded));
        Console::line(QStringLiteral("✅ Embedding success: %1 vectors returned").arg(vectors.size()));
        co_return EmbeddingsResult{std::move(vectors), std::nullopt};
    }

    const QString text = bodyText(answer);
    Console::line(QStringLiteral("❌ Embedding API Error (HTTP %1): %2").arg(status).arg(text));
    co_return EmbeddingsResult{
        {},
        ProviderError::api(status,
                           QStringLiteral("Embedding request failed (HTTP %1): %2").arg(status).arg(text))};
}
