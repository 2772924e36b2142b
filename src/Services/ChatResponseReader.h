#pragma once

#include "Services/ChatStream.h"
#include "Services/SseLineSplitter.h"

#include <QObject>
#include <QPointer>

#include <memory>

class QNetworkReply;

// Reads the HTTP answer of one chat turn as it arrives and feeds its pieces, end or error into the stream.
// It owns the reply: when the consumer cancels, the request is aborted so a stopped turn costs nothing more.
class ChatResponseReader : public QObject {
    Q_OBJECT
public:
    static void start(QNetworkReply *reply, std::shared_ptr<ChatStream> stream);

private:
    ChatResponseReader(QNetworkReply *reply, std::shared_ptr<ChatStream> stream);
    ~ChatResponseReader() override;

    void onMetaData();
    void onReadyRead();
    void onFinished();
    void onCancel();
    bool handleLine(QByteArrayView line);
    // Feeds what has arrived to the splitter; false once the stream has ended on a line.
    bool feedArrived();
    // Hands the pieces of the bytes read so far to the stream: once per read, not once per piece.
    void deliver();
    void end(const std::optional<ProviderError> &error);

    QNetworkReply *m_reply;
    std::shared_ptr<ChatStream> m_stream;
    SseLineSplitter m_splitter;
    ChatStream::Pieces m_read;
    QByteArray m_slice; // what is read is copied out in slices of this one buffer
    int m_status = 0;
    bool m_statusPrinted = false;
    bool m_done = false;
};

// The "Stream Error: " line and the stream's error end, shared by every failure of a turn.
void failStream(ChatStream &stream, const ProviderError &error);
