#pragma once

#include "Models/Message.h"

#include <QAbstractListModel>
#include <QList>

// The conversation as a list for views: one row per message, keyed by the message's id.
class MessageListModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ size NOTIFY countChanged)
public:
    enum Role { IdRole = Qt::UserRole + 1, TextRole, IsUserRole, TimestampRole, AttachmentsRole };

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int size() const { return int(m_messages.size()); }
    bool isEmpty() const { return m_messages.isEmpty(); }
    const QList<Message> &list() const { return m_messages; }
    const Message &last() const { return m_messages.last(); }

    void append(const Message &message);
    // Appends a piece to the last message's text (the streaming answer).
    void appendToLast(const QString &piece);
    void clear();

signals:
    void countChanged();

private:
    QList<Message> m_messages;
};

// How views see an attachment: its id, kind, shown name and whether a preview picture exists.
QVariantList attachmentsForView(const QList<Attachment> &attachments);
