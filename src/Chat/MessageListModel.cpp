#include "MessageListModel.h"

QVariantList attachmentsForView(const QList<Attachment> &attachments)
{
    QVariantList result;
    for (const Attachment &a : attachments) {
        const bool image = a.type().isImage();
        result.append(QVariantMap{{QStringLiteral("id"), a.id().toString(QUuid::WithoutBraces)},
                                  {QStringLiteral("isImage"), image},
                                  {QStringLiteral("name"), image ? QString() : a.type().name()}});
    }
    return result;
}

int MessageListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : size();
}

QVariant MessageListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Message &m = m_messages.at(index.row());
    switch (role) {
    case IdRole:
        return m.id().toString(QUuid::WithoutBraces);
    case Qt::DisplayRole:
    case TextRole:
        return m.text();
    case IsUserRole:
        return m.isUser();
    case TimestampRole:
        return m.timestamp();
    case AttachmentsRole:
        return attachmentsForView(m.attachments());
    default:
        return {};
    }
}

QHash<int, QByteArray> MessageListModel::roleNames() const
{
    return {{IdRole, "messageId"},
            {TextRole, "text"},
            {IsUserRole, "isUser"},
            {TimestampRole, "timestamp"},
            {AttachmentsRole, "attachments"}};
}

void MessageListModel::append(const Message &message)
{
    beginInsertRows({}, size(), size());
    m_messages.append(message);
    endInsertRows();
    emit countChanged();
}

void MessageListModel::appendToLast(const QString &piece)
{
    if (m_messages.isEmpty())
        return;
    m_messages.last().appendText(piece);
    const QModelIndex last = index(size() - 1);
    emit dataChanged(last, last, {TextRole, Qt::DisplayRole});
}

void MessageListModel::clear()
{
    if (m_messages.isEmpty())
        return;
    beginResetModel();
    m_messages.clear();
    endResetModel();
    emit countChanged();
}
