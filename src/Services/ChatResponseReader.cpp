#include "ChatResponseReader.h"

#include "Core/Console.h"
#include "Services/ProviderReply.h"
#include "Services/StreamEvent.h"

#include <QNetworkReply>

void failStream(ChatStream &stream, const ProviderError &error)
{
    Console::line(QStringLiteral("Stream Error: ") + error.fullText());
    stream.fail(error);
}

void ChatResponseReader::start(QNetworkReply *reply, std::shared_ptr<ChatStream> stream)
{
    new ChatResponseReader(reply, std::move(stream));
}

// A child of the network manager: a reader whose deferred deletion the event loop no longer reaches (the
// program ends right after the turn) still goes, with its reply, when the manager does.
ChatResponseReader::ChatResponseReader(QNetworkReply *reply, std::shared_ptr<ChatStream> stream)
    : QObject(reply->manager())
    , m_reply(reply)
    , m_stream(std::move(stream))
{
    reply->setParent(this);
    connect(reply, &QNetworkReply::metaDataChanged, this, &ChatResponseReader::onMetaData);
    connect(reply, &QNetworkReply::readyRead, this, &ChatResponseReader::onReadyRead);
    connect(reply, &QNetworkReply::finished, this, &ChatResponseReader::onFinished);
    connect(m_stream.get(), &ChatStream::cancelRequested, this, &ChatResponseReader::onCancel);
}

ChatResponseReader::~ChatResponseReader() = default;

void ChatResponseReader::onMetaData()
{
    if (m_statusPrinted)
        return;
    // Only the answer the request ends on counts; the head of a redirect on the way there is passed over.
    const std::optional<int> status = ProviderReply::finalStatus(*m_reply);
    if (!status)
        return;
    m_status = *status;
    m_statusPrinted = true;
    Console::line(QStringLiteral("Stream: Response received. Status: ") + QString::number(m_status));
    if (m_status != 200)
        Console::line(QStringLiteral("API Error: Status ") + QString::number(m_status));
}

bool ChatResponseReader::handleLine(QByteArrayView line)
{
    if (m_status != 200) {
        Console::line(QStringLiteral("Error Body: ") + QString::fromUtf8(line));
        return true;
    }
    switch (StreamEvent::read(line, m_read.text)) {
    case StreamEvent::Kind::Ignore:
        return true;
    case StreamEvent::Kind::Piece:
        m_read.ends.append(m_read.text.size());
        return true;
    case StreamEvent::Kind::Done:
        end(std::nullopt);
        return false;
    }
    return true;
}

void ChatResponseReader::onReadyRead()
{
    if (m_done)
        return;
    onMetaData();
    if (!m_statusPrinted)
        return; // no final answer yet (a redirect being followed, or none over HTTP): decided when it
                // finishes
    feedArrived();
}

bool ChatResponseReader::feedArrived()
{
    // A slice that stays warm in the cache, rather than one fresh allocation as large as all that arrived
    // while the event loop was busy.
    constexpr qsizetype SliceBytes = 128 * 1024;
    if (!m_reply->isOpen())
        return true; // an aborted reply reads nothing
    if (m_slice.isEmpty())
        m_slice.resize(SliceBytes);
    for (;;) {
        const qint64 size = m_reply->read(m_slice.data(), m_slice.size());
        if (size <= 0)
            return true;
        m_read.text.reserve(size); // a piece never has more UTF-16 units than its line has bytes
        const bool goOn = m_splitter.feed(QByteArrayView(m_slice.constData(), size),
                                          [this](QByteArrayView line) { return handleLine(line); });
        deliver();
        if (!goOn)
            return false;
    }
}

void ChatResponseReader::deliver()
{
    if (!m_read.isEmpty())
        m_stream->push(std::exchange(m_read, {}));
}

void ChatResponseReader::onFinished()
{
    if (m_done)
        return;
    onMetaData();
    const QNetworkReply::NetworkError transportError = m_reply->error();
    const auto handler = [this](QByteArrayView line) { return handleLine(line); };
    if (m_statusPrinted) {
        // Whatever arrived before a failure is still delivered; "[DONE]" may already end the stream here.
        if (!feedArrived())
            return;
        // An HTTP error status is not a transport failure: its body has been printed, then it is reported.
        if (transportError == QNetworkReply::NoError || m_status != 200) {
            if (!m_splitter.finish(handler))
                return;
            if (m_status != 200)
                end(ProviderError::api(m_status, QStringLiteral("API request failed with status ") +
                                                     QString::number(m_status)));
            else
                end(std::nullopt);
            return;
        }
    }
    if (transportError != QNetworkReply::NoError) {
        end(ProviderReply::transportError(*m_reply));
        return;
    }
    end(ProviderError::api(-1, QStringLiteral("Invalid response")));
}

void ChatResponseReader::onCancel()
{
    if (m_done)
        return;
    m_done = true;
    m_reply->abort();
    deleteLater();
}

void ChatResponseReader::end(const std::optional<ProviderError> &error)
{
    if (m_done)
        return;
    deliver();
    m_done = true;
    if (error)
        failStream(*m_stream, *error);
    else
        m_stream->finish();
    // After "[DONE]" the rest of the body is not read: closing the reply stops the transfer.
    disconnect(m_reply, nullptr, this, nullptr);
    if (m_reply->isRunning())
        m_reply->abort();
    deleteLater();
}
