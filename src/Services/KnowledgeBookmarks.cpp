#include "KnowledgeBookmarks.h"

#include "AppSettings.h"
#include "Core/Console.h"
#include "Core/SecurityScope.h"
#include "Services/ContextManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSysInfo>
#include <QUuid>

#include <sys/stat.h>

namespace {

const QString Format = QStringLiteral("quillmoor-bookmark");
constexpr int Version = 1;

// This computer's identity, found once per process.
QString thisMachine()
{
    static const QString identity = KnowledgeBookmarks::machineIdentity(QSysInfo::machineUniqueId());
    return identity;
}

// The inode tells a file that was replaced under the same path (the bookmark is then stale).
QString fileIdentity(const QString &path)
{
    struct stat info {};
    if (::stat(QFileInfo(path).absoluteFilePath().toLocal8Bit().constData(), &info) != 0)
        return {};
    return QStringLiteral("%1:%2").arg(quint64(info.st_dev)).arg(quint64(info.st_ino));
}

QString yesNo(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

QString KnowledgeBookmarks::machineIdentity(const QByteArray &systemId)
{
    if (!systemId.isEmpty())
        return QString::fromLatin1(systemId);
    // Kept next to the settings; made by whichever process needs it first.
    const QString path = AppSettings::folder() + QStringLiteral("/machine-id");
    QFile kept(path);
    if (kept.open(QIODevice::ReadOnly)) {
        const QByteArray stored = kept.readAll().trimmed();
        if (!stored.isEmpty())
            return QString::fromLatin1(stored);
        kept.close();
    }
    const QByteArray made = QUuid::createUuid().toByteArray(QUuid::Id128);
    QDir().mkpath(AppSettings::folder());
    QFile created(path);
    if (created.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
        created.write(made + '\n');
        created.close();
        return QString::fromLatin1(made);
    }
    // Another process made it meanwhile.
    if (kept.open(QIODevice::ReadOnly)) {
        const QByteArray stored = kept.readAll().trimmed();
        if (!stored.isEmpty())
            return QString::fromLatin1(stored);
    }
    return QString::fromLatin1(made);
}

QString KnowledgeBookmarks::Error::fullText() const
{
    return QStringLiteral("Error Domain=QuillmoorBookmark Code=%1 \"%2\"")
        .arg(QString::number(code), description);
}

std::variant<QByteArray, KnowledgeBookmarks::Error> KnowledgeBookmarks::create(const QUrl &url)
{
    if (!url.isLocalFile())
        return Error{Error::NotAFile, QStringLiteral("The location “%1” is not a file.").arg(url.toString())};
    const QString path = QFileInfo(url.toLocalFile()).absoluteFilePath();
    if (!QFileInfo::exists(path))
        return Error{Error::NoSuchFile,
                     QStringLiteral("The file “%1” couldn’t be opened because there is no such file.")
                         .arg(url.fileName())};
    const QJsonObject record{{QStringLiteral("format"), Format},
                             {QStringLiteral("version"), Version},
                             {QStringLiteral("path"), path},
                             {QStringLiteral("file"), fileIdentity(path)},
                             {QStringLiteral("machine"), thisMachine()}};
    return QJsonDocument(record).toJson(QJsonDocument::Compact);
}

std::variant<KnowledgeBookmarks::Resolved, KnowledgeBookmarks::Error>
KnowledgeBookmarks::resolve(const QByteArray &bookmark)
{
    const QJsonObject record = QJsonDocument::fromJson(bookmark).object();
    const QString path = record.value(QLatin1String("path")).toString();
    // The path is written clean and absolute; another spelling is no bookmark of ours, and one that starts
    // with "//" would even name a network share instead of a local file.
    if (record.value(QLatin1String("format")).toString() != Format ||
        record.value(QLatin1String("version")).toInt() != Version || !path.startsWith(QLatin1Char('/')) ||
        QDir::cleanPath(path) != path || QUrl::fromLocalFile(path).toLocalFile() != path)
        return Error{Error::Corrupted, QStringLiteral("The bookmark data is corrupted.")};
    const QString identity = fileIdentity(path);
    // Made under another identity: on another computer, or on this one before its identity changed (a
    // system without a machine id, a cloned one). Which it was cannot be told, so the file decides: where
    // it exists the bookmark still serves (to be made anew), and knowledge is never dropped just because
    // the identity changed.
    if (record.value(QLatin1String("machine")).toString() != thisMachine()) {
        if (identity.isEmpty())
            return Error{Error::OtherComputer,
                         QStringLiteral("The bookmark was created on another computer.")};
        return Resolved{QUrl::fromLocalFile(path), true};
    }
    const bool stale = !identity.isEmpty() && identity != record.value(QLatin1String("file")).toString();
    return Resolved{QUrl::fromLocalFile(path), stale};
}

QList<QByteArray> KnowledgeBookmarks::decodeList(const QByteArray &stored)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(stored, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return {};
    QList<QByteArray> bookmarks;
    for (const QJsonValue &value : document.array()) {
        if (!value.isString())
            return {};
        auto decoded = QByteArray::fromBase64Encoding(value.toString().toLatin1(),
                                                      QByteArray::AbortOnBase64DecodingErrors);
        if (!decoded)
            return {};
        bookmarks.append(*decoded);
    }
    return bookmarks;
}

QByteArray KnowledgeBookmarks::encodeList(const QList<QByteArray> &bookmarks)
{
    QJsonArray array;
    for (const QByteArray &bookmark : bookmarks)
        array.append(QString::fromLatin1(bookmark.toBase64()));
    // A slash occurs only inside the base64 strings, so every one of them can take the escape.
    return QJsonDocument(array).toJson(QJsonDocument::Compact).replace("/", "\\/");
}

QList<QUrl> KnowledgeBookmarks::getKnowledgeURLs(AppSettings &settings)
{
    const QList<QByteArray> stored = decodeList(settings.knowledgeBookmarksData());
    QList<QUrl> urls;
    QList<QByteArray> kept;
    for (qsizetype i = 0; i < stored.size(); ++i) {
        const auto resolved = resolve(stored[i]);
        if (const Error *error = std::get_if<Error>(&resolved)) {
            Console::line(QStringLiteral("❌ Bookmark [%1] ungültig (anderer Mac?): %2")
                              .arg(QString::number(i), error->description));
            continue;
        }
        const auto &[url, stale] = std::get<Resolved>(resolved);
        if (!QFileInfo::exists(url.toLocalFile())) {
            Console::line(
                QStringLiteral(
                    "⚠️ Bookmark [%1]: %2 → Datei nicht gefunden (anderer Mac?), wird entfernt")
                    .arg(QString::number(i), url.fileName()));
            continue;
        }
        const bool accessed = SecurityScope::startAccessing(url.toLocalFile());
        Console::line(QStringLiteral("📁 Bookmark [%1]: %2 → resolved (stale: %3, accessed: %4)")
                          .arg(QString::number(i), url.fileName(), yesNo(stale), yesNo(accessed)));
        urls.append(url);
        kept.append(stored[i]);
    }
    const qsizetype count = decodeList(settings.knowledgeBookmarksData()).size();
    if (kept.size() != count) {
        Console::line(
            QStringLiteral("🧹 Bereinige %1 ungültige Wissensdatei(en)").arg(count - kept.size()));
        settings.setKnowledgeBookmarksData(encodeList(kept));
    }
    return urls;
}

void KnowledgeBookmarks::addKnowledgeFile(AppSettings &settings, const QUrl &url,
                                          ContextManager &contextManager)
{
    // Outside a sandbox the short access around creating the bookmark has nothing to end.
    SecurityScope::startAccessing(url.toLocalFile());
    const auto created = create(url);
    if (const Error *error = std::get_if<Error>(&created)) {
        Console::line(QStringLiteral("Failed to create bookmark: ") + error->fullText());
        return;
    }
    if (getKnowledgeURLs(settings).contains(url))
        return;
    QList<QByteArray> stored = decodeList(settings.knowledgeBookmarksData());
    stored.append(std::get<QByteArray>(created));
    settings.setKnowledgeBookmarksData(encodeList(stored));
    contextManager.addFile(url);
}

void KnowledgeBookmarks::removeKnowledgeFile(AppSettings &settings, int index, const QUrl &url,
                                             ContextManager &contextManager)
{
    contextManager.removeFile(url);
    QList<QByteArray> stored = decodeList(settings.knowledgeBookmarksData());
    if (index < 0 || index >= stored.size())
        return;
    stored.removeAt(index);
    settings.setKnowledgeBookmarksData(encodeList(stored));
}

QUrl KnowledgeBookmarks::resolveBookmark(const QByteArray &bookmark)
{
    const auto resolved = resolve(bookmark);
    const Resolved *ok = std::get_if<Resolved>(&resolved);
    if (!ok)
        return {};
    SecurityScope::startAccessing(ok->url.toLocalFile());
    return ok->url;
}
