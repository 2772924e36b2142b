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

void ChatStream::Pieces::append(Pieces &&more)
{
    if (isEmpty()) {
        *this = std::move(more);
        return;
    }
    const qsizetype offset = text.size();
    text += more.text;
    ends.reserve(ends.size() + more.ends.size());
    for (const qsizetype end : std::as_const(more.ends))
        ends.append(offset + end);
}

QStringList ChatStream::Pieces::list() const
{
    QStringList pieces;
    pieces.reserve(ends.size());
    qsizetype start = 0;
    for (const qsizetype end : ends) {
        pieces.append(text.sliced(start, end - start));
        start = end;
    }
    return pieces;
}

void ChatStream::push(Pieces &&pieces)
{
    if (m_cancelled || m_finished || pieces.isEmpty())
        return;
    m_pieces.append(std::move(pieces));
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
    m_pieces = {};
    emit cancelRequested();
    wake();
}
