#include "AttachmentType.h"

AttachmentType AttachmentType::image(ImageRef image)
{
    AttachmentType t;
    t.m_kind = Kind::Image;
    t.m_image = std::move(image);
    return t;
}

AttachmentType AttachmentType::document(const QUrl &url, const QString &name)
{
    AttachmentType t;
    t.m_kind = Kind::Document;
    t.m_url = url;
    t.m_name = name;
    return t;
}

bool AttachmentType::operator==(const AttachmentType &other) const
{
    if (m_kind != other.m_kind)
        return false;
    if (m_kind == Kind::Image)
        return m_image == other.m_image;
    return m_url == other.m_url && m_name == other.m_name;
}
