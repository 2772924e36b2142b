#include "ChatStream.h"

#include <utility>

struct ChatStream::WaitForChange {
    ChatStream *stream;
    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> handle) noexcept { stream->m_waiter = handle; }
    void await_resume() const noexcept {}
};

void ChatStream::wake()
{
    if (std::coroutine_handle<> waiter = std::exchange(m_waiter, {}))
        QMetaObject::invokeMethod(
            this, [waiter] { waiter.resume(); }, Qt::QueuedConnection);
}

std::shared_ptr<ChatStream> ChatStream::create()
{
    return std::shared_ptr<ChatStream>(new ChatStream);
}

void ChatStream::push(const QString &piece)
{
    if (m_cancelled || m_finished)
        return;
    m_pieces.append(piece);
    wake();
}

void ChatStream::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    wake();
}

void ChatStream::fail(const ProviderError &error)
{
    if (m_finished)
        return;
    m_error = error;
    m_finished = true;
    wake();
}

QCoro::Task<ChatStream::Item> ChatStream::next()
{
    // Keeps the stream alive while the consumer waits, whoever else lets go of it.
    auto self = shared_from_this_guard();
    for (;;) {
        if (m_cancelled)
            co_return Item{Item::Kind::End, {}, {}};
        if (!m_pieces.isEmpty())
            co_return Item{Item::Kind::Pieces, std::exchange(m_pieces, {}), {}};
        if (m_finished) {
            if (m_error)
                co_return Item{Item::Kind::Error, {}, *m_error};
            co_return Item{Item::Kind::End, {}, {}};
        }
        co_await WaitForChange{this};
    }
}

void ChatStream::cancel()
{
    if (m_cancelled)
        return;
    m_cancelled = true;
    m_pieces.clear();
    emit cancelRequested();
    wake();
}
