#include "AttachmentImageProvider.h"

#include "Chat/ChatSession.h"

AttachmentImageProvider::AttachmentImageProvider(const ChatSession &session)
    : QQuickImageProvider(QQuickImageProvider::Image)
    , m_previews(session.previews())
{
}

QImage AttachmentImageProvider::requestImage(const QString &id, QSize *size, const QSize &requestedSize)
{
    QImage image = m_previews->image(QUuid(id));
    if (size)
        *size = image.size();
    if (!image.isNull() && requestedSize.isValid())
        image = image.scaled(requestedSize, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    return image;
}
