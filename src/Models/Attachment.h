#pragma once

#include "Models/AttachmentType.h"

#include <QUuid>

class Attachment {
public:
    explicit Attachment(AttachmentType type)
        : m_id(QUuid::createUuid())
        , m_type(std::move(type))
    {
    }

    const QUuid &id() const { return m_id; }
    const AttachmentType &type() const { return m_type; }

    bool operator==(const Attachment &other) const = default;

private:
    QUuid m_id;
    AttachmentType m_type;
};
