#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

#include <variant>

class AppSettings;
class ContextManager;

// The persisted list of knowledge files: one bookmark per file, stored as a JSON array of base64 strings.
// A bookmark is a small versioned JSON record of the file's absolute path, its inode and this computer's
// identity, so it finds the file again after a restart and refuses to resolve on another computer where
// the file is not. Everything here runs on the main thread.
namespace KnowledgeBookmarks {

struct Error {
    enum Code { NotAFile = 1, NoSuchFile = 2, Corrupted = 3, OtherComputer = 4 };
    int code = 0;
    QString description;
    QString fullText() const;
};

struct Resolved {
    QUrl url;
    bool stale = false; // the path now names another file than the one bookmarked
};

std::variant<QByteArray, Error> create(const QUrl &url);
std::variant<Resolved, Error> resolve(const QByteArray &bookmark);

// The stored value's list, empty when the value is empty or not an array of base64 strings.
QList<QByteArray> decodeList(const QByteArray &stored);
// Compact JSON with every "/" written as "\/".
QByteArray encodeList(const QList<QByteArray> &bookmarks);

// The files of every stored bookmark that resolves to an existing file, in stored order; drops the others
// from the store.
QList<QUrl> getKnowledgeURLs(AppSettings &settings);
// A file dropped on the settings screen: stored once and handed to the knowledge base.
void addKnowledgeFile(AppSettings &settings, const QUrl &url, ContextManager &contextManager);
// The settings screen's row `index`, showing `url`.
void removeKnowledgeFile(AppSettings &settings, int index, const QUrl &url, ContextManager &contextManager);
// One row's bookmark for the settings screen; an empty URL when it does not resolve.
QUrl resolveBookmark(const QByteArray &bookmark);

// The identity of this computer that bookmarks carry: the system's machine id, or where the system has
// none, one made once and kept with the settings; never anything the user may change, like the host name.
QString machineIdentity(const QByteArray &systemId);

} // namespace KnowledgeBookmarks
