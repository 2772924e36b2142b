#pragma once

#include "Chat/AttachmentPreviews.h"

#include <QQuickImageProvider>

#include <memory>

class ChatSession;

// Serves "image://attachment/<id>": the preview picture of a pending or sent image attachment. Qt asks on
// its image-loader thread, so the provider reads only the session's preview store, never its lists.
class AttachmentImageProvider : public QQuickImageProvider {
public:
    static inline const QString Name = QStringLiteral("attachment");

    explicit AttachmentImageProvider(const ChatSession &session);

    QImage requestImage(const QString &id, QSize *size, const QSize &requestedSize) override;

private:
    std::shared_ptr<const AttachmentPreviews> m_previews;
};
