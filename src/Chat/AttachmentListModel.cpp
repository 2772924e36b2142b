#include "AttachmentListModel.h"

int AttachmentListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : size();
}

QVariant AttachmentListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Attachment &a = m_items.at(index.row());
    switch (role) {
    case IdRole:
        return a.id().toString(QUuid::WithoutBraces);
    case IsImageRole:
        return a.type().isImage();
    case Qt::DisplayRole:
    case NameRole:
        return a.type().isImage() ? QString() : a.type().name();
    default:
        return {};
    }
}

QHash<int, QByteArray> AttachmentListModel::roleNames() const
{
    return {{IdRole, "attachmentId"}, {IsImageRole, "isImage"}, {NameRole, "name"}};
}

void AttachmentListModel::append(const Attachment &attachment)
{
    beginInsertRows({}, size(), size());
    m_items.append(attachment);
    endInsertRows();
    emit countChanged();
}

void AttachmentListModel::removeAt(int row)
{
    if (row < 0 || row >= size())
        return;
    beginRemoveRows({}, row, row);
    m_items.removeAt(row);
    endRemoveRows();
    emit countChanged();
}

QList<Attachment> AttachmentListModel::takeAll()
{
    if (m_items.isEmpty())
        return {};
    beginResetModel();
    QList<Attachment> all = std::move(m_items);
    m_items.clear();
    endResetModel();
    emit countChanged();
    return all;
}
