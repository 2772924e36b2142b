#include "../Services/KnowledgeTestUtil.h"
#include "AppSettings.h"
#include "CaseFiles.h"
#include "Core/AppTheme.h"
#include "Services/KnowledgeBookmarks.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSysInfo>

using namespace KnowledgeTest;

namespace {

QByteArray bookmark(const QUrl &url)
{
    return std::get<QByteArray>(KnowledgeBookmarks::create(url));
}

// The bookmark of `url` with one field of its record changed.
QByteArray edited(const QUrl &url, const QString &key, const QString &value)
{
    QJsonObject record = QJsonDocument::fromJson(bookmark(url)).object();
    record.insert(key, value);
    return QJsonDocument(record).toJson(QJsonDocument::Compact);
}

} // namespace

class TestAppSettings : public QObject, Fixture {
    Q_OBJECT

private slots:
    void init() { AppSettings().setKnowledgeBookmarksData({}); }

    // An accent index out of range is stored as it is and shows orange; an unknown model has no details.
    void choicesOutOfRange()
    {
        AppSettings settings;
        QVERIFY(settings.modelInfo(QStringLiteral("gpt-unknown")).isEmpty());
        for (int index : {6, -1}) {
            settings.setAccentColorIndex(index);
            QCOMPARE(settings.accentColorIndex(), index);
            QCOMPARE(settings.accentColor(), AppTheme::orange());
        }
    }

    // Without a system machine id the identity is made once and kept beside the settings, so renaming the
    // host changes nothing.
    void machineIdentityWithoutASystemId()
    {
        QCOMPARE(KnowledgeBookmarks::machineIdentity("8f14e45fceea167a5a36dedd4bea2543"),
                 QStringLiteral("8f14e45fceea167a5a36dedd4bea2543"));
        const QString made = KnowledgeBookmarks::machineIdentity({});
        QVERIFY(made != QSysInfo::machineHostName());
        QCOMPARE(KnowledgeBookmarks::machineIdentity({}), made);
        QFile kept(AppSettings::folder() + QStringLiteral("/machine-id"));
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll().trimmed(), made.toLatin1());
    }

    // A store that is empty or cannot be read gives no files, says nothing, and is left as it is.
    void undecodableStoreIsLeftAlone_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addRow("empty") << QByteArray();
        QTest::addRow("an object") << QByteArray("{\"a\":1}");
        QTest::addRow("a number among the strings") << QByteArray("[\"QUJD\",1]");
        QTest::addRow("not base64") << QByteArray("[\"*not base64*\"]");
    }
    void undecodableStoreIsLeftAlone()
    {
        QFETCH(QByteArray, stored);
        AppSettings settings;
        settings.setKnowledgeBookmarksData(stored);
        ConsoleCapture console;
        QVERIFY(settings.getKnowledgeURLs().isEmpty());
        QVERIFY(console.lines().isEmpty());
        QCOMPARE(settings.knowledgeBookmarksData(), stored);
    }

    // At start-up the bookmarks that do not resolve leave the store; one whose path names another file is
    // stale. Another computer's bookmark still serves (stale) where its file is here, as this computer's
    // identity may have changed. A path that is not clean ("//host/..." reads as a network share) is no
    // bookmark of ours.
    void startUpResolutionCleansTheStore()
    {
        QList<QUrl> urls;
        for (const char *name : {"a.txt", "b.txt", "c.txt", "gone.txt", "d.txt"})
            urls.append(writeFile(QString::fromLatin1(name), "Inhalt"));
        const QString path = urls[0].toLocalFile();
        const QList<QByteArray> stored{
            bookmark(urls[0]),
            edited(urls[1], QStringLiteral("machine"), QStringLiteral("another-computer")),
            bookmark(urls[2]),
            bookmark(urls[3]),
            edited(urls[4], QStringLiteral("machine"), QStringLiteral("another-computer")),
            "not a bookmark",
            edited(urls[0], QStringLiteral("path"), QLatin1Char('/') + path),
            edited(urls[0], QStringLiteral("path"), path + QStringLiteral("/../a.txt"))};
        QVERIFY(QFile::remove(urls[1].toLocalFile()));
        QVERIFY(QFile::remove(urls[3].toLocalFile()));
        // c.txt replaced by a new file, made while the old one still held its inode.
        const QString replacement = writeFile(QStringLiteral("c.new"), "Inhalt").toLocalFile();
        QVERIFY(QFile::remove(urls[2].toLocalFile()) && QFile::rename(replacement, urls[2].toLocalFile()));
        AppSettings settings;
        settings.setKnowledgeBookmarksData(KnowledgeBookmarks::encodeList(stored));

        ConsoleCapture console;
        QCOMPARE(settings.getKnowledgeURLs(), QList<QUrl>({urls[0], urls[2], urls[4]}));
        QCOMPARE(CaseFiles::lines(console.text()),
                 CaseFiles::expected(QStringLiteral("appsettings/start-up")));
        QCOMPARE(KnowledgeBookmarks::decodeList(settings.knowledgeBookmarksData()),
                 QList<QByteArray>({stored[0], stored[2], stored[4]}));
    }

    // A file is stored once, and one that cannot be bookmarked not at all; a row that does not exist
    // removes nothing from the store. (Removing an existing row is the delegate's test.)
    void addingAndRemovingFiles()
    {
        AppSettings settings;
        ContextManager manager(api);
        const QUrl url = writeFile(QStringLiteral("eins.txt"), "Inhalt");
        settings.addKnowledgeFile(url, manager);
        settings.addKnowledgeFile(url, manager);
        ConsoleCapture console;
        settings.addKnowledgeFile(QUrl::fromLocalFile(QStringLiteral("/nowhere/nope.txt")), manager);
        QVERIFY(
            console.lines().value(0).startsWith(QStringLiteral("Failed to create bookmark: Error Domain=")));
        QCOMPARE(manager.trackedFiles(), QList<QUrl>{url});
        settings.removeKnowledgeFile(7, url, manager);
        QVERIFY(manager.trackedFiles().isEmpty());
        QCOMPARE(KnowledgeBookmarks::decodeList(settings.knowledgeBookmarksData()), QList{bookmark(url)});
        QCoro::waitFor(manager.waitUntilIdle());
    }
};

QUILLMOOR_TEST_MAIN(TestAppSettings)
#include "tst_appsettings.moc"
