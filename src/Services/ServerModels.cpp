#include "ServerModels.h"

#include "AppSettings.h"
#include "Core/Console.h"
#include "Services/InfomaniakAPI.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

std::variant<QStringList, ProviderError> ServerModels::decode(const QByteArray &body)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return ProviderError{QStringLiteral("QJsonParseError"), int(parseError.error),
                             parseError.errorString()};
    const QJsonValue data = document.object().value(QLatin1String("data"));
    if (!data.isArray())
        return ProviderError{QStringLiteral("ModelList"), 1,
                             QStringLiteral("no \"data\" list in the answer")};

    QStringList models;
    QSet<QString> seen;
    for (const QJsonValue &item : data.toArray()) {
        const QString id = item.toObject().value(QLatin1String("id")).toString();
        if (!id.isEmpty() && !seen.contains(id)) {
            seen.insert(id);
            models.append(id);
        }
    }
    return models;
}

QCoro::Task<> ServerModels::offer(std::shared_ptr<const InfomaniakAPI> api, QPointer<AppSettings> settings)
{
    const QString where = api->baseURL() + QStringLiteral("/models");
    const ModelsResult result = co_await api->listModels();
    if (!settings)
        co_return;
    if (!result.ok()) {
        Console::line(QStringLiteral("⚠️ No model list from ") + where + QStringLiteral(": ") +
                      result.error->description + QStringLiteral(" (the picker keeps its models)"));
        co_return;
    }
    if (result.models.isEmpty()) {
        Console::line(QStringLiteral("⚠️ No model list from ") + where +
                      QStringLiteral(": the list is empty (the picker keeps its models)"));
        co_return;
    }
    settings->setServerModels(result.models);
    Console::line(QStringLiteral("📋 ") + where + QStringLiteral(" lists ") +
                  QString::number(result.models.size()) +
                  QStringLiteral(" models; the picker offers them after the catalogue"));
}
