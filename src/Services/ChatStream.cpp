#include "ChatStream.h"

#include <qcoro/qcorosignal.h>

std::shared_ptr<ChatStream> ChatStream::create() {
    return std::shared_ptr<ChatStream>(new ChatStream);
}

void ChatStream::push(const QString &piece) {
    if (m_cancelled || m_finished)
        return;
    m_pieces.enqueue(piece);
    emit changed();
}

void ChatStream::finish() {
    if (m_finished)
        return;
    m_finished = true;
    emit changed();
}

void ChatStream::fail(const ProviderError &error) {
    if (m_finished)
        return;
    m_error = error;
    m_finished = true;
    emit changed();
}

QCoro::Task<ChatStream::Item> ChatStream::next() {
    // Keeps the stream alive while the consumer waits, whoever else lets go of it.
    auto self = shared_from_this_guard();
    for (;;) {
        if (m_cancelled)
            co_return Item{Item::Kind::End, {}, {}};
        if (!m_pieces.isEmpty())
            co_return Item{Item::Kind::Piece, m_pieces.dequeue(), {}};
        if (m_finished) {
            if (m_error)
                co_return Item{Item::Kind::Error, {}, *m_error};
            co_return Item{Item::Kind::End, {}, {}};
        }
        co_await qCoro(this, &ChatStream::changed);
    }
}

void ChatStream::cancel() {
    if (m_cancelled)
        return;
    m_cancelled = true;
    m_pieces.clear();
    emit cancelRequested();
    emit changed();
}
