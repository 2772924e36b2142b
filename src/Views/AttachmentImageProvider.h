#pragma once

#include <QPointer>
#include <QQuickImageProvider>

class ChatSession;

// Serves "image://attachment/<id>": the preview picture of a pending or sent image attachment.
class AttachmentImageProvider : public QQuickImageProvider {
public:
    static inline const QString Name = QStringLiteral("attachment");

    explicit AttachmentImageProvider(ChatSession *session);

    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;

private:
    QPointer<ChatSession> m_session;
};
