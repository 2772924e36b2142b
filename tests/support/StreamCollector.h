#pragma once

#include "Services/ChatStream.h"

#include <QStringList>

#include <qcoro/qcorotask.h>

#include <optional>

// A chat stream's pieces and its error, read to the end inside a test, the way the chat window's turn does.
struct CollectedStream {
    QStringList pieces;
    std::optional<ProviderError> error;
};

inline CollectedStream readAll(std::shared_ptr<ChatStream> stream)
{
    CollectedStream result;
    for (;;) {
        const ChatStream::Item item = QCoro::waitFor(stream->next());
        if (item.kind != ChatStream::Item::Kind::Pieces) {
            if (item.kind == ChatStream::Item::Kind::Error)
                result.error = item.error;
            return result;
        }
        result.pieces.append(item.pieces.list());
    }
}
