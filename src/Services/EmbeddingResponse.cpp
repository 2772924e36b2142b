#include "EmbeddingResponse.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// `where` is written as the mismatch errors write it: keys in quotes, indices in brackets.
ProviderError missing(const QString &where)
{
    return {EmbeddingResponse::DecodingDomain, EmbeddingResponse::KeyNotFound,
            QStringLiteral("The data couldn't be read because it is missing: %1.").arg(where)};
}

ProviderError mismatch(const QString &where, const QString &expected)
{
    return {EmbeddingResponse::DecodingDomain, EmbeddingResponse::TypeMismatch,
            QStringLiteral("The data couldn't be read because it isn't in the correct format: %1 is not %2.")
                .arg(where, expected)};
}

} // namespace

std::variant<QList<QList<double>>, ProviderError> EmbeddingResponse::decode(const QByteArray &body)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return ProviderError{QStringLiteral("QJsonParseError"), int(parseError.error),
                             parseError.errorString()};
    if (!document.isObject())
        return mismatch(QStringLiteral("the answer"), QStringLiteral("an object"));

    const QJsonObject root = document.object();
    if (!root.contains(QLatin1String("data")))
        return missing(QStringLiteral("\"data\""));
    const QJsonValue data = root.value(QLatin1String("data"));
    if (!data.isArray())
        return mismatch(QStringLiteral("\"data\""), QStringLiteral("an array"));

    QList<QList<double>> vectors;
    const QJsonArray items = data.toArray();
    vectors.reserve(items.size());
    for (qsizetype i = 0; i < items.size(); ++i) {
        const QString where = QStringLiteral("\"data\"[%1]").arg(i);
        if (!items[i].isObject())
            return mismatch(where, QStringLiteral("an object"));
        const QJsonObject item = items[i].toObject();
        if (!item.contains(QLatin1String("embedding")))
            return missing(where + QStringLiteral(".embedding"));
        const QJsonValue embedding = item.value(QLatin1String("embedding"));
        if (!embedding.isArray())
            return mismatch(where + QStringLiteral(".embedding"), QStringLiteral("an array of numbers"));
        const QJsonArray numbers = embedding.toArray();
        QList<double> vector;
        vector.reserve(numbers.size());
        for (qsizetype j = 0; j < numbers.size(); ++j) {
            if (!numbers[j].isDouble())
                return mismatch(where + QStringLiteral(".embedding[%1]").arg(j), QStringLiteral("a number"));
            vector.append(numbers[j].toDouble());
        }
        vectors.append(std::move(vector));
    }
    return vectors;
}
