#pragma once

#include "Models/Attachment.h"

#include <QAbstractListModel>
#include <QList>

// The attachments waiting to be sent, for the pending strip.
class AttachmentListModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ size NOTIFY countChanged)
public:
    enum Role { IdRole = Qt::UserRole + 1, IsImageRole, NameRole };

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    int size() const { return int(m_items.size()); }
    const QList<Attachment> &list() const { return m_items; }
    void append(const Attachment &attachment);
    void removeAt(int row);
    // Hands the whole list over and leaves the model empty.
    QList<Attachment> takeAll();

signals:
    void countChanged();

private:
    QList<Attachment> m_items;
};
