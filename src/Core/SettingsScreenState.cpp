#include "SettingsScreenState.h"

#include "AppSettings.h"
#include "Core/Notifier.h"
#include "Services/ContextManager.h"
#include "Services/KnowledgeBookmarks.h"

#include <QPointer>

int KnowledgeRowsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

QVariant KnowledgeRowsModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const Row &row = m_rows.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return row.url.fileName();
    case UrlRole:
        return row.url;
    case BookmarkIndexRole:
        return row.bookmarkIndex;
    default:
        return {};
    }
}

QHash<int, QByteArray> KnowledgeRowsModel::roleNames() const
{
    return {{NameRole, "name"}, {UrlRole, "url"}, {BookmarkIndexRole, "bookmarkIndex"}};
}

void KnowledgeRowsModel::setRows(const QList<Row> &rows)
{
    const bool sameShape = rows.size() == m_rows.size();
    if (sameShape) {
        bool same = true;
        for (qsizetype i = 0; i < rows.size() && same; ++i)
            same = rows[i].bookmarkIndex == m_rows[i].bookmarkIndex && rows[i].url == m_rows[i].url;
        if (same)
            return;
    }
    beginResetModel();
    m_rows = rows;
    endResetModel();
}

SettingsScreenState::SettingsScreenState(AppSettings &settings, ContextManager &contextManager,
                                         QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_contextManager(contextManager)
{
    connect(&m_settings, &AppSettings::knowledgeBookmarksDataChanged, this, &SettingsScreenState::refresh);
    connect(&m_contextManager, &ContextManager::trackedFilesChanged, this, &SettingsScreenState::refresh);
    refresh();
}

QString SettingsScreenState::modelHelpText(const QString &model)
{
    const auto it = AppSettings::modelMetadata().constFind(model);
    if (it == AppSettings::modelMetadata().constEnd())
        return {};
    return QStringLiteral("Herkunft: %1\nFähigkeiten: %2\nKontext: %3")
        .arg(it->origin, it->capabilities, it->ethics);
}

QString SettingsScreenState::accentColorName(int index)
{
    // In the palette's order: the theme's orange, then blue, purple, pink, green and gray.
    static const QStringList names = {QStringLiteral("Orange"), QStringLiteral("Blau"),
                                      QStringLiteral("Lila"),   QStringLiteral("Pink"),
                                      QStringLiteral("Grün"),   QStringLiteral("Grau")};
    return names.value(index);
}

void SettingsScreenState::chooseAccentColor(int index)
{
    m_settings.setAccentColorIndex(index);
}

void SettingsScreenState::chooseModel(const QString &model)
{
    m_settings.setSelectedModel(model);
}

void SettingsScreenState::setMasterPrompt(const QString &prompt)
{
    if (prompt != m_settings.masterPrompt())
        m_settings.setMasterPrompt(prompt);
}

void SettingsScreenState::removeKnowledgeRow(int row)
{
    if (row < 0 || row >= m_rows.rowCount())
        return;
    const KnowledgeRowsModel::Row target = m_rows.rows().at(row);
    m_settings.removeKnowledgeFile(target.bookmarkIndex, target.url, m_contextManager);
    refresh();
}

bool SettingsScreenState::dropFiles(const QList<QUrl> &urls)
{
    QList<QUrl> files;
    for (const QUrl &url : urls) {
        if (url.isLocalFile())
            files.append(url);
    }
    if (files.isEmpty())
        return false;
    // The drop is answered before any file is stored, as the platform's drop loads its items later.
    QPointer<SettingsScreenState> self(this);
    for (const QUrl &url : files) {
        QMetaObject::invokeMethod(
            this,
            [self, url] {
                if (self)
                    self->m_settings.addKnowledgeFile(url, self->m_contextManager);
            },
            Qt::QueuedConnection);
    }
    return true;
}

void SettingsScreenState::clearChat()
{
    Notifier::instance().post(Notifier::ClearChatMemory);
}

void SettingsScreenState::refresh()
{
    QList<KnowledgeRowsModel::Row> rows;
    const QList<QByteArray> bookmarks = KnowledgeBookmarks::decodeList(m_settings.knowledgeBookmarksData());
    for (qsizetype i = 0; i < bookmarks.size(); ++i) {
        const QUrl url = AppSettings::resolveBookmark(bookmarks[i]);
        if (!url.isEmpty())
            rows.append({int(i), url});
    }
    m_rows.setRows(rows);
}
