#pragma once

#include <QHash>
#include <QImage>
#include <QSet>
#include <QUuid>

#include <mutex>

// The preview pictures of the conversation's image attachments, for views that load them on a thread of
// their own. The session hands each picture over on the main thread as a copy that belongs to this store
// alone; a reader on any thread gets its own copy and never sees the session's lists.
class AttachmentPreviews {
public:
    void insert(const QUuid &id, const QImage &preview);
    void remove(const QUuid &id);
    // Forgets every picture whose attachment is not among `ids`.
    void keepOnly(const QSet<QUuid> &ids);
    // The picture of the attachment `id`; a null image when there is none. Safe from any thread.
    QImage image(const QUuid &id) const;

private:
    // A standard mutex rather than QMutex: ThreadSanitizer sees its hand-overs, also when it is contended.
    mutable std::mutex m_mutex;
    QHash<QUuid, QImage> m_images;
};
