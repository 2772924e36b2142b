#include "AttachmentImageProvider.h"

#include "Chat/ChatSession.h"

AttachmentImageProvider::AttachmentImageProvider(ChatSession *session)
    : QQuickImageProvider(QQuickImageProvider::Image)
    , m_session(session)
{
}

// Image requests may come from the loader thread; the attachments live on the main thread and are only
// read here, and their pictures are immutable once loaded.
QImage AttachmentImageProvider::requestImage(const QString &id, QSize *size, const QSize &requestedSize)
{
    QImage image;
    if (m_session) {
        if (const Attachment *attachment = m_session->findAttachment(QUuid(id));
            attachment && attachment->type().isImage() && attachment->type().imageData())
            image = attachment->type().imageData()->preview();
    }
    if (size)
        *size = image.size();
    if (!image.isNull() && requestedSize.isValid())
        image = image.scaled(requestedSize, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    return image;
}
