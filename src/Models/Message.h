#pragma once

#include "Models/Attachment.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>

// One turn of the user or of the assistant. Equality looks at identity, text and attachments only, so a
// streaming answer differs from its earlier copy while a message's time or author never matter.
class Message {
public:
    Message(QString text, bool isUser, QList<Attachment> attachments = {})
        : m_id(QUuid::createUuid())
        , m_text(std::move(text))
        , m_isUser(isUser)
        , m_timestamp(QDateTime::currentDateTime())
        , m_attachments(std::move(attachments))
    {
    }

    const QUuid &id() const { return m_id; }
    const QString &text() const { return m_text; }
    void setText(const QString &text) { m_text = text; }
    void appendText(const QString &piece) { m_text += piece; }
    bool isUser() const { return m_isUser; }
    const QDateTime &timestamp() const { return m_timestamp; }
    const QList<Attachment> &attachments() const { return m_attachments; }
    void setAttachments(const QList<Attachment> &attachments) { m_attachments = attachments; }

    bool operator==(const Message &other) const
    {
        return m_id == other.m_id && m_text == other.m_text && m_attachments == other.m_attachments;
    }

private:
    QUuid m_id;
    QString m_text;
    bool m_isUser = false;
    QDateTime m_timestamp;
    QList<Attachment> m_attachments;
};
