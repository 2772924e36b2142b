#include "StreamEvent.h"

#include "Services/JsonDeltaScanner.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <optional>

namespace {

constexpr QByteArrayView Prefix("data: ");
constexpr QByteArrayView DoneMarker("[DONE]");

// The part of the line after "data: ", or nothing when the line is no data line.
std::optional<QByteArrayView> dataOf(QByteArrayView line)
{
    if (!line.startsWith(Prefix))
        return std::nullopt;
    return line.sliced(Prefix.size());
}

} // namespace

StreamEvent StreamEvent::parse(QByteArrayView line)
{
    const std::optional<QByteArrayView> data = dataOf(line);
    if (!data)
        return {};
    if (*data == DoneMarker)
        return {Kind::Done, {}};
    // Most events are plain, well-formed JSON: a single pass finds the piece without building a document.
    const JsonDeltaScanner::Result scanned = JsonDeltaScanner::scan(*data);
    switch (scanned.outcome) {
    case JsonDeltaScanner::Outcome::Content:
        return {Kind::Piece, scanned.content};
    case JsonDeltaScanner::Outcome::NoContent:
        return {};
    case JsonDeltaScanner::Outcome::Unsure:
        break;
    }
    return parseWithDocument(line);
}

StreamEvent StreamEvent::parseWithDocument(QByteArrayView line)
{
    const std::optional<QByteArrayView> data = dataOf(line);
    if (!data)
        return {};
    if (*data == DoneMarker)
        return {Kind::Done, {}};

    // The line is read as text first, so bytes that are not UTF-8 become replacement characters.
    const QJsonDocument document = QJsonDocument::fromJson(QString::fromUtf8(*data).toUtf8());
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
