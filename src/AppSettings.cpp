#include "AppSettings.h"

#include "Core/AppTheme.h"
#include "Services/KnowledgeBookmarks.h"

#include <QFileInfo>

namespace {
const QString AccentKey = QStringLiteral("accentColorIndex");
const QString ModelKey = QStringLiteral("selectedModel");
const QString PromptKey = QStringLiteral("masterPrompt");
const QString BookmarksKey = QStringLiteral("knowledgeBookmarksData");
} // namespace

AppSettings::AppSettings(QObject *parent)
    : QObject(parent)
    , m_store(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Quillmoor"),
              QStringLiteral("Quillmoor"))
{
}

QString AppSettings::folder()
{
    const QSettings store(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Quillmoor"),
                          QStringLiteral("Quillmoor"));
    return QFileInfo(store.fileName()).absolutePath();
}

QVariant AppSettings::read(const QString &key, const QVariant &fallback) const
{
    // Another process (the command-line companion, a second window) may have written meanwhile.
    m_store.sync();
    return m_store.contains(key) ? m_store.value(key) : fallback;
}

void AppSettings::write(const QString &key, const QVariant &value)
{
    m_store.setValue(key, value);
    m_store.sync();
}

int AppSettings::accentColorIndex() const
{
    bool ok = false;
    const int index = read(AccentKey, 0).toInt(&ok);
    return ok ? index : 0;
}

void AppSettings::setAccentColorIndex(int index)
{
    write(AccentKey, index);
    emit accentColorIndexChanged();
}

QString AppSettings::selectedModel() const
{
    return read(ModelKey, DefaultModel).toString();
}

void AppSettings::setSelectedModel(const QString &model)
{
    write(ModelKey, model);
    emit selectedModelChanged();
}

QString AppSettings::masterPrompt() const
{
    return read(PromptKey, DefaultMasterPrompt).toString();
}

void AppSettings::setMasterPrompt(const QString &prompt)
{
    write(PromptKey, prompt);
    emit masterPromptChanged();
}

QByteArray AppSettings::knowledgeBookmarksData() const
{
    return read(BookmarksKey, QByteArray()).toByteArray();
}

void AppSettings::setKnowledgeBookmarksData(const QByteArray &data)
{
    write(BookmarksKey, data);
    emit knowledgeBookmarksDataChanged();
}

QStringList AppSettings::availableModels() const
{
    static const QStringList catalogue = {QStringLiteral("swiss-ai/Apertus-70B-Instruct-2509"),
                                          QStringLiteral("mistral3"), QStringLiteral("qwen3")};
    QStringList models = catalogue;
    // The server's list has no repeats of its own (ServerModels::decode).
    for (const QString &model : m_serverModels) {
        if (!catalogue.contains(model))
            models.append(model);
    }
    return models;
}

void AppSettings::setServerModels(const QStringList &models)
{
    if (models == m_serverModels)
        return;
    m_serverModels = models;
    emit availableModelsChanged();
}

const QMap<QString, AppSettings::ModelInfo> &AppSettings::modelMetadata()
{
    static const QMap<QString, ModelInfo> catalogue = {
        {QStringLiteral("swiss-ai/Apertus-70B-Instruct-2509"),
         {QStringLiteral("🇨🇭 Schweiz"),
          QStringLiteral("Exzellent in Deutsch, logisches Denken, Swiss-Optimized."),
          QStringLiteral("Datenschutzkonform 🛡️, Schweizer Server 🇨🇭, Enterprise-Grade."), false}},
        {QStringLiteral("qwen3"),
         {QStringLiteral("🇨🇳 China (Alibaba)"),
          QStringLiteral("Hervorragende Bilderkennung (Vision), sehr schnell."),
          QStringLiteral("Datenschutzkonform 🛡️. Gehostet in der Schweiz 🇨🇭. Open Weights."),
          true}},
        {QStringLiteral("mistral3"),
         {QStringLiteral("🇫🇷 Frankreich"), QStringLiteral("Sehr effizient, smart, großer Kontext."),
          QStringLiteral("Datenschutzkonform 🛡️. Gehostet in der Schweiz 🇨🇭. Europäische KI."),
          false}},
    };
    return catalogue;
}

QList<QColor> AppSettings::accentColors()
{
    // The standard system blue, purple, pink, green and gray of the light appearance.
    return {AppTheme::orange(),  QColor(0, 122, 255), QColor(175, 82, 222),
            QColor(255, 45, 85), QColor(52, 199, 89), QColor(142, 142, 147)};
}

QColor AppSettings::accentColor() const
{
    const QList<QColor> colours = accentColors();
    const int index = accentColorIndex();
    return index >= 0 && index < colours.size() ? colours.at(index) : colours.first();
}

QVariantMap AppSettings::modelInfo(const QString &model) const
{
    const auto it = modelMetadata().constFind(model);
    if (it == modelMetadata().constEnd())
        return {};
    return {{QStringLiteral("origin"), it->origin},
            {QStringLiteral("capabilities"), it->capabilities},
            {QStringLiteral("ethics"), it->ethics},
            {QStringLiteral("supportsVision"), it->supportsVision}};
}

QList<QUrl> AppSettings::getKnowledgeURLs()
{
    return KnowledgeBookmarks::getKnowledgeURLs(*this);
}

void AppSettings::addKnowledgeFile(const QUrl &url, ContextManager &contextManager)
{
    KnowledgeBookmarks::addKnowledgeFile(*this, url, contextManager);
}

void AppSettings::removeKnowledgeFile(int index, const QUrl &url, ContextManager &contextManager)
{
    KnowledgeBookmarks::removeKnowledgeFile(*this, index, url, contextManager);
}

QUrl AppSettings::resolveBookmark(const QByteArray &bookmark)
{
    return KnowledgeBookmarks::resolveBookmark(bookmark);
}
