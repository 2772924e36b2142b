#pragma once

#include "Models/ImageData.h"

#include <QString>
#include <QUrl>

// What an attachment holds: a picture, or the location and shown name of a document.
class AttachmentType {
public:
    enum class Kind { Image, Document };

    static AttachmentType image(ImageRef image);
    static AttachmentType document(const QUrl &url, const QString &name);

    Kind kind() const { return m_kind; }
    bool isImage() const { return m_kind == Kind::Image; }
    bool isDocument() const { return m_kind == Kind::Document; }

    const ImageRef &imageData() const { return m_image; }
    const QUrl &url() const { return m_url; }
    const QString &name() const { return m_name; }

    // Pictures are equal only when they are the same loaded object; documents by location and name.
    bool operator==(const AttachmentType &other) const;

private:
    Kind m_kind = Kind::Document;
    ImageRef m_image;
    QUrl m_url;
    QString m_name;
};
