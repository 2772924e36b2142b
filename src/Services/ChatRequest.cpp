#include "ChatRequest.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

QString ChatRequest::plainSystemMessage(const std::optional<QString> &systemPrompt)
{
    return systemPrompt.value_or(InfomaniakAPI::DefaultSystemPrompt) + QLatin1Char('\n') +
           InfomaniakAPI::PlainStyleSentence;
}

QString ChatRequest::documentText(const QList<Attachment> &attachments)
{
    QString text;
    for (const Attachment &attachment : attachments) {
        if (!attachment.type().isDocument())
            continue;
        const std::optional<QString> extracted = InfomaniakAPI::extractText(attachment.type().url());
        if (!extracted)
            continue;
        text += QStringLiteral("\n\n--- Dokument: ") + attachment.type().name() + QStringLiteral(" ---\n") +
                *extracted + QLatin1Char('\n');
    }
    return text;
}

ChatRequest::Body ChatRequest::build(const QString &model, const QString &systemMessage,
                                     const QList<HistoryEntry> &history, const QString &message,
                                     const QList<Attachment> &attachments)
{
    const QString userText = message + documentText(attachments);

    // A picture's data URL can be tens of megabytes: the serializer only sees a placeholder, and the base64
    // bytes are spliced into its output, which spares a UTF-16 copy of every picture.
    const QString token = QUuid::createUuid().toString(QUuid::Id128);
    QList<QByteArray> images;
    bool anyImage = false;
    QJsonArray parts{
        QJsonObject{{QStringLiteral("type"), QStringLiteral("text")}, {QStringLiteral("text"), userText}}};
    for (const Attachment &attachment : attachments) {
        if (!attachment.type().isImage())
            continue;
        anyImage = true;
        const ImageRef &image = attachment.type().imageData();
        const QByteArray jpeg = image ? image->toJpeg() : QByteArray();
        if (jpeg.isEmpty())
            continue;
        const QString placeholder = QStringLiteral("image-%1-%2").arg(token).arg(images.size());
        images.append(jpeg.toBase64());
        parts.append(
            QJsonObject{{QStringLiteral("type"), QStringLiteral("image_url")},
                        {QStringLiteral("image_url"), QJsonObject{{QStringLiteral("url"), placeholder}}}});
    }

    QJsonArray messages{QJsonObject{{QStringLiteral("role"), QStringLiteral("system")},
                                    {QStringLiteral("content"), systemMessage}}};
    for (const HistoryEntry &entry : history)
        messages.append(
            QJsonObject{{QStringLiteral("role"), entry.role}, {QStringLiteral("content"), entry.content}});
    messages.append(
        QJsonObject{{QStringLiteral("role"), QStringLiteral("user")},
                    {QStringLiteral("content"), anyImage ? QJsonValue(parts) : QJsonValue(userText)}});

    const QJsonObject body{{QStringLiteral("model"), model},
                           {QStringLiteral("messages"), messages},
                           {QStringLiteral("temperature"), 0.4},
                           {QStringLiteral("stream"), true}};
    QByteArray json = QJsonDocument(body).toJson(QJsonDocument::Compact);
    for (qsizetype i = 0; i < images.size(); ++i) {
        const QByteArray placeholder = '"' + QStringLiteral("image-%1-%2").arg(token).arg(i).toLatin1() + '"';
        json.replace(placeholder, "\"data:image/jpeg;base64," + images[i] + '"');
        images[i].clear();
    }
    return {std::move(json), int(images.size())};
}
