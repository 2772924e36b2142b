#pragma once

#include "Services/ChatStream.h"

#include <QStringList>

#include <qcoro/qcorotask.h>

#include <optional>

// Reads a chat stream to its end inside a test, the way the chat window's turn does.
struct CollectedStream {
    QStringList pieces;
    std::optional<ProviderError> error;
    QString text() const { return pieces.join(QString()); }
};

inline QCoro::Task<CollectedStream> collectStream(std::shared_ptr<ChatStream> stream)
{
    CollectedStream result;
    for (;;) {
        const ChatStream::Item item = co_await stream->next();
        if (item.kind == ChatStream::Item::Kind::Pieces) {
            result.pieces.append(item.pieces);
            continue;
        }
        if (item.kind == ChatStream::Item::Kind::Error)
            result.error = item.error;
        co_return result;
    }
}

inline CollectedStream readAll(std::shared_ptr<ChatStream> stream)
{
    return QCoro::waitFor(collectStream(std::move(stream)));
}
