#pragma once

#include <QAbstractListModel>
#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

class AppSettings;
class ContextManager;

// The knowledge rows of the settings screen: one per stored bookmark that still resolves, each remembering
// its position in the stored list (rows that no longer resolve are skipped but keep their indices taken).
class KnowledgeRowsModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role { NameRole = Qt::UserRole + 1, UrlRole, BookmarkIndexRole };

    struct Row {
        int bookmarkIndex = 0;
        QUrl url;
    };

    using QAbstractListModel::QAbstractListModel;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    void setRows(const QList<Row> &rows);
    const QList<Row> &rows() const { return m_rows; }

private:
    QList<Row> m_rows;
};

// What the settings screen does: it edits the one settings store directly and passes knowledge files to the
// one knowledge base; the view only lays it out.
class SettingsScreenState : public QObject {
    Q_OBJECT
    Q_PROPERTY(KnowledgeRowsModel *knowledgeRows READ knowledgeRows CONSTANT)
public:
    SettingsScreenState(AppSettings &settings, ContextManager &contextManager, QObject *parent = nullptr);

    KnowledgeRowsModel *knowledgeRows() { return &m_rows; }

    // The picker item's hover help: origin, capabilities and context on three lines; empty for a model
    // outside the catalogue.
    Q_INVOKABLE static QString modelHelpText(const QString &model);
    // The name a screen reader gives the swatch of the palette entry at `index`.
    Q_INVOKABLE static QString accentColorName(int index);

    Q_INVOKABLE void chooseAccentColor(int index);
    Q_INVOKABLE void chooseModel(const QString &model);
    Q_INVOKABLE void setMasterPrompt(const QString &prompt);
    // The remove button of the row at `row`.
    Q_INVOKABLE void removeKnowledgeRow(int row);
    // A drop on the knowledge zone. Accepted at once when it carries files; each file is added on a later
    // turn of the event loop, in order. Returns whether the drop was accepted.
    Q_INVOKABLE bool dropFiles(const QList<QUrl> &urls);
    Q_INVOKABLE void clearChat();

    // Derives the rows again from the stored list.
    void refresh();

private:
    AppSettings &m_settings;
    ContextManager &m_contextManager;
    KnowledgeRowsModel m_rows;
};
