// The embeddings call of the provider client; the chat turn lives in InfomaniakAPI.cpp.
#include "Services/InfomaniakAPI.h"

#include "Core/Console.h"
#include "Services/EmbeddingResponse.h"
#include "Services/ProviderReply.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QStringDecoder>

#include <qcoro/qcoronetworkreply.h>

#include <memory>

namespace {

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
    Console::line(QStringLiteral("🔢 Embedding %1 texts with model=%2 mode=%3")
                      .arg(QString::number(texts.size()), model, mode));

    const QJsonObject body{{QStringLiteral("model"), model},
                           {QStringLiteral("input"), QJsonArray::fromStringList(texts)},
                           {QStringLiteral("mode"), mode}};

    // The reply is owned here, so a caller that goes away mid-call leaves nothing behind.
    ProviderReply::Owned reply(network().post(request(QStringLiteral("/embeddings")),
                                              QJsonDocument(body).toJson(QJsonDocument::Compact)));
    co_await reply.get();

    // Any HTTP answer other than 200 is the provider's error, whatever Qt's error code makes of its status;
    // no answer at all, or a 200 that broke off, is the transport's.
    const std::optional<int> status = ProviderReply::finalStatus(*reply);
    if (reply->error() != QNetworkReply::NoError && (!status || *status == 200))
        co_return EmbeddingsResult{{}, ProviderReply::transportError(*reply)};

    const QByteArray answer = ProviderReply::readRest(*reply);
    if (status == 200) {
        auto decoded = EmbeddingResponse::decode(answer);
        if (auto *failure = std::get_if<ProviderError>(&decoded))
            co_return EmbeddingsResult{{}, *failure};
        auto vectors = std::get<QList<QList<double>>>(std::move(decoded));
        Console::line(QStringLiteral("✅ Embedding success: ") + QString::number(vectors.size()) +
                      QStringLiteral(" vectors returned"));
        co_return EmbeddingsResult{std::move(vectors), std::nullopt};
    }

    const QString code = QString::number(status.value_or(-1));
    const QString text = bodyText(answer);
    Console::line(QStringLiteral("❌ Embedding API Error (HTTP ") + code + QStringLiteral("): ") + text);
    co_return EmbeddingsResult{
        {},
        ProviderError::api(status.value_or(-1), QStringLiteral("Embedding request failed (HTTP ") + code +
                                                    QStringLiteral("): ") + text)};
}
