#pragma once

#include "Models/Attachment.h"
#include "Services/InfomaniakAPI.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// The JSON body of one chat turn. Building it reads the attached files and encodes the pictures, so it runs
// on the thread pool, never on the main thread.
namespace ChatRequest {

// The system message used when no knowledge is injected: the prompt (or its default) and the style sentence.
QString plainSystemMessage(const std::optional<QString> &systemPrompt);

// "\n\n--- Dokument: NAME ---\nTEXT\n" for each document that yields text, in order.
QString documentText(const QList<Attachment> &attachments);

struct Body {
    QByteArray json;
    int imagesSent = 0;
};

// The whole body: system message, the history unshortened, the user's content (a string, or text and image
// parts when any attachment is a picture; pictures that cannot be encoded are left out).
Body build(const QString &model, const QString &systemMessage, const QList<HistoryEntry> &history,
           const QString &message, const QList<Attachment> &attachments);

} // namespace ChatRequest
