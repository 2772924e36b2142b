#pragma once

#include <QByteArray>
#include <QColor>
#include <QList>
#include <QMap>
#include <QObject>
#include <QSettings>
#include <QString>
#include <QStringList>
#include <QUrl>

class ContextManager;

// The one settings object: four values kept in the per-user store and written through at once, the fixed
// model catalogue and the accent palette. Every read consults the store; a signal follows each write.
class AppSettings : public QObject {
    Q_OBJECT
    Q_PROPERTY(
        int accentColorIndex READ accentColorIndex WRITE setAccentColorIndex NOTIFY accentColorIndexChanged)
    Q_PROPERTY(QString selectedModel READ selectedModel WRITE setSelectedModel NOTIFY selectedModelChanged)
    Q_PROPERTY(QString masterPrompt READ masterPrompt WRITE setMasterPrompt NOTIFY masterPromptChanged)
    Q_PROPERTY(QColor accentColor READ accentColor NOTIFY accentColorIndexChanged)
    Q_PROPERTY(QStringList availableModels READ availableModels NOTIFY availableModelsChanged)
    Q_PROPERTY(QList<QColor> accentColors READ accentColors CONSTANT)

public:
    struct ModelInfo {
        QString origin;
        QString capabilities;
        QString ethics;
        bool supportsVision = false;
    };

    static inline const QString DefaultModel = QStringLiteral("swiss-ai/Apertus-70B-Instruct-2509");
    static inline const QString DefaultMasterPrompt = QStringLiteral("Du bist ein hilfreicher Assistent.");

    explicit AppSettings(QObject *parent = nullptr);

    int accentColorIndex() const;
    void setAccentColorIndex(int index);
    QString selectedModel() const;
    void setSelectedModel(const QString &model);
    QString masterPrompt() const;
    void setMasterPrompt(const QString &prompt);
    QByteArray knowledgeBookmarksData() const;
    void setKnowledgeBookmarksData(const QByteArray &data);

    // The catalogue's three models, then those the user's own server listed that the catalogue lacks.
    QStringList availableModels() const;
    static const QMap<QString, ModelInfo> &modelMetadata();
    // What the user's server offers for this run; never stored, and the chosen model stays as it is.
    void setServerModels(const QStringList &models);
    static QList<QColor> accentColors();
    QColor accentColor() const;

    // The catalogue texts for views (empty strings for a model outside the catalogue).
    Q_INVOKABLE QVariantMap modelInfo(const QString &model) const;

    // The persisted knowledge files (KnowledgeBookmarks): the files that still resolve, with the store
    // cleaned of the others; a dropped file added once; row `index` removed.
    QList<QUrl> getKnowledgeURLs();
    void addKnowledgeFile(const QUrl &url, ContextManager &contextManager);
    void removeKnowledgeFile(int index, const QUrl &url, ContextManager &contextManager);
    // One row's bookmark, or an empty URL when it no longer resolves.
    static QUrl resolveBookmark(const QByteArray &bookmark);
    // The folder of the per-user store, for what is kept beside it.
    static QString folder();

signals:
    void accentColorIndexChanged();
    void selectedModelChanged();
    void masterPromptChanged();
    void knowledgeBookmarksDataChanged();
    void availableModelsChanged();

private:
    QVariant read(const QString &key, const QVariant &fallback) const;
    void write(const QString &key, const QVariant &value);

    mutable QSettings m_store;
    QStringList m_serverModels;
};
