#include "AttachmentPreviews.h"

void AttachmentPreviews::insert(const QUuid &id, const QImage &preview)
{
    // A deep copy: the pixels share nothing with the attachment the main thread keeps using.
    QImage own = preview.copy();
    std::lock_guard lock(m_mutex);
    m_images.insert(id, std::move(own));
}

void AttachmentPreviews::remove(const QUuid &id)
{
    std::lock_guard lock(m_mutex);
    m_images.remove(id);
}

void AttachmentPreviews::keepOnly(const QSet<QUuid> &ids)
{
    std::lock_guard lock(m_mutex);
    m_images.removeIf([&ids](const QHash<QUuid, QImage>::iterator it) { return !ids.contains(it.key()); });
}

QImage AttachmentPreviews::image(const QUuid &id) const
{
    std::lock_guard lock(m_mutex);
    // Again a deep copy, so the reader's picture shares nothing with the store either.
    return m_images.value(id).copy();
}
