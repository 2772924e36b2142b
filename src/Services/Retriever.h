#pragma once

#include "Services/DocumentChunk.h"

#include <QList>
#include <QString>

#include <qcoro/qcorotask.h>

#include <optional>

class InfomaniakAPI;

// Decides which knowledge goes into a chat turn: embeds the question, scores every chunk, adds files the
// question names, and builds the tagged system message from the relevant files' texts. Never fails: without
// knowledge, or when the question cannot be embedded, it yields nothing and the plain system message is used.
namespace Retriever {

QCoro::Task<std::optional<QString>> knowledgeSystemMessage(const InfomaniakAPI &api, const QString &message,
                                                           const QList<DocumentChunk> &externalChunks,
                                                           const QString &systemPrompt);

} // namespace Retriever
