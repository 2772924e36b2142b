#include "StreamEvent.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

StreamEvent StreamEvent::parse(const QString &line) {
    static const QString prefix = QStringLiteral("data: ");
    if (!line.startsWith(prefix))
        return {};
    const QStringView rest = QStringView(line).mid(prefix.size());
    if (rest == QLatin1String("[DONE]"))
        return {Kind::Done, {}};

    const QJsonDocument document = QJsonDocument::fromJson(rest.toUtf8());
    if (!document.isObject())
        return {};
    const QJsonValue choicesValue = document.object().value(QLatin1String("choices"));
    if (!choicesValue.isArray())
        return {};
    const QJsonArray choices = choicesValue.toArray();
    if (choices.isEmpty())
        return {};
    for (const QJsonValue &choice : choices)
        if (!choice.isObject())
            return {};
    const QJsonValue delta = choices.first().toObject().value(QLatin1String("delta"));
    if (!delta.isObject())
        return {};
    const QJsonValue content = delta.toObject().value(QLatin1String("content"));
    if (!content.isString())
        return {};
    return {Kind::Piece, content.toString()};
}
