#pragma once

#include "Core/ProviderError.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <qcoro/qcorotask.h>

#include <coroutine>
#include <memory>
#include <optional>

// The answer of one chat turn: pieces of text in order, then a normal end or one error. One producer
// pushes; one consumer awaits `next()`. The buffer is unbounded, so a slow consumer loses nothing.
// When the consumer cancels, the producer is told (`cancelRequested`) and later pushes are dropped.
class ChatStream : public QObject, public std::enable_shared_from_this<ChatStream> {
    Q_OBJECT
public:
    // Pieces in order, written one after another into one text: a piece costs no allocation of its own.
    struct Pieces {
        QString text;
        QList<qsizetype> ends; // where each piece ends in `text`

        bool isEmpty() const { return ends.isEmpty(); }
        void append(Pieces &&more);
        QStringList list() const;
    };

    struct Item {
        enum class Kind { Pieces, End, Error };
        Kind kind = Kind::End;
        Pieces pieces; // every piece that arrived since the consumer last looked
        ProviderError error;
    };

    static std::shared_ptr<ChatStream> create();

    // Producer side.
    void push(Pieces &&pieces);
    void finish();
    void fail(const ProviderError &error);
    bool isCancelled() const { return m_cancelled; }
    bool isFinished() const { return m_finished; }

    // Consumer side: the pieces that are there, or the end, or the error; waits while nothing is there.
    // Taking all waiting pieces at once spares a resumption per piece when the network is faster than the
    // screen.
    QCoro::Task<Item> next();
    // Stops the turn: nothing more is delivered and the producer aborts its request.
    void cancel();

signals:
    void cancelRequested();

private:
    ChatStream() = default;
    std::shared_ptr<ChatStream> shared_from_this_guard() { return shared_from_this(); }
    struct WaitForChange;
    // Resumes the waiting consumer once, from the event loop, however many changes happened meanwhile.
    void wake();

    std::coroutine_handle<> m_waiter;

    Pieces m_pieces;
    std::optional<ProviderError> m_error;
    bool m_finished = false;
    bool m_cancelled = false;
};
