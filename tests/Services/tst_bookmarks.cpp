#include "AppSettings.h"
#include "ConsoleCapture.h"
#include "Core/Console.h"
#include "KnowledgeTestUtil.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "Services/KnowledgeBookmarks.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QTemporaryFile>

#include <qcoro/qcorotask.h>

#include <cstdio>

namespace {

// A bookmark as another computer would have made it for the same path.
QByteArray foreignBookmark(const QByteArray &own)
{
    QJsonObject record = QJsonDocument::fromJson(own).object();
    record.insert(QStringLiteral("machine"), QStringLiteral("another-computer"));
    return QJsonDocument(record).toJson(QJsonDocument::Compact);
}

// The same bookmark with its path written another way.
QByteArray withPath(const QByteArray &own, const QString &path)
{
    QJsonObject record = QJsonDocument::fromJson(own).object();
    record.insert(QStringLiteral("path"), path);
    return QJsonDocument(record).toJson(QJsonDocument::Compact);
}

} // namespace

class TestBookmarks : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    TestProvider m_provider;
    std::shared_ptr<const InfomaniakAPI> m_api;

    QUrl makeFile(const QString &name, const QByteArray &content = "Inhalt der Datei")
    {
        return KnowledgeTest::writeFile(m_dir.filePath(name), content);
    }
    static QByteArray bookmark(const QUrl &url)
    {
        return std::get<QByteArray>(KnowledgeBookmarks::create(url));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_provider.listen());
        m_api = clientFor(m_provider);
    }
    void init() { AppSettings().setKnowledgeBookmarksData({}); }

    void bookmarksRoundTrip()
    {
        const QUrl url = makeFile(QStringLiteral("Preise 2024.txt"));
        const QByteArray bytes = bookmark(url);
        const auto resolved = KnowledgeBookmarks::resolve(bytes);
        QCOMPARE(std::get<KnowledgeBookmarks::Resolved>(resolved).url, url);
        QCOMPARE(std::get<KnowledgeBookmarks::Resolved>(resolved).stale, false);
        QCOMPARE(AppSettings::resolveBookmark(bytes), url);
        QVERIFY(AppSettings::resolveBookmark("not a bookmark").isEmpty());
        QVERIFY(std::holds_alternative<KnowledgeBookmarks::Error>(
            KnowledgeBookmarks::create(QUrl::fromLocalFile(m_dir.filePath(QStringLiteral("missing.txt"))))));
    }

    // A bookmark made under another machine identity: where its file is missing it was made on another
    // computer and does not resolve; where the file is there, this computer's identity may simply have
    // changed, and the bookmark still serves (stale) rather than costing the user the file.
    void anotherMachineIdentity()
    {
        const QUrl here = makeFile(QStringLiteral("hier.txt"));
        const auto kept = KnowledgeBookmarks::resolve(foreignBookmark(bookmark(here)));
        QCOMPARE(std::get<KnowledgeBookmarks::Resolved>(kept).url, here);
        QCOMPARE(std::get<KnowledgeBookmarks::Resolved>(kept).stale, true);

        const QByteArray elsewhere = foreignBookmark(bookmark(makeFile(QStringLiteral("dort.txt"))));
        QVERIFY(QFile::remove(m_dir.filePath(QStringLiteral("dort.txt"))));
        const auto foreign = KnowledgeBookmarks::resolve(elsewhere);
        QCOMPARE(std::get<KnowledgeBookmarks::Error>(foreign).code,
                 int(KnowledgeBookmarks::Error::OtherComputer));
        QVERIFY(AppSettings::resolveBookmark(elsewhere).isEmpty());
    }

    // Without a system machine id the identity is made once and kept beside the settings, so renaming the
    // host changes nothing.
    void machineIdentityWithoutASystemId()
    {
        QCOMPARE(KnowledgeBookmarks::machineIdentity("8f14e45fceea167a5a36dedd4bea2543"),
                 QStringLiteral("8f14e45fceea167a5a36dedd4bea2543"));
        const QString made = KnowledgeBookmarks::machineIdentity({});
        QCOMPARE(made.size(), 32);
        QVERIFY(made != QSysInfo::machineHostName());
        QCOMPARE(KnowledgeBookmarks::machineIdentity({}), made);
        QFile kept(AppSettings::folder() + QStringLiteral("/machine-id"));
        QVERIFY(kept.open(QIODevice::ReadOnly));
        QCOMPARE(kept.readAll().trimmed(), made.toLatin1());
    }

    void replacedFileIsStale()
    {
        const QUrl url = makeFile(QStringLiteral("stale.txt"));
        const QByteArray bytes = bookmark(url);
        const QUrl replacement = makeFile(QStringLiteral("stale.txt.new"), "neu");
        QVERIFY(QFile::remove(url.toLocalFile()));
        QVERIFY(QFile::rename(replacement.toLocalFile(), url.toLocalFile()));
        QCOMPARE(std::get<KnowledgeBookmarks::Resolved>(KnowledgeBookmarks::resolve(bytes)).stale, true);
    }

    void storedFormat()
    {
        const QList<QByteArray> list{QByteArray("\xff\xfe\xfd\xfc", 4), QByteArray("?>?", 3)};
        const QByteArray encoded = KnowledgeBookmarks::encodeList(list);
        QCOMPARE(encoded, QByteArray("[\"\\/\\/79\\/A==\",\"Pz4\\/\"]"));
        QCOMPARE(KnowledgeBookmarks::decodeList(encoded), list);
        QCOMPARE(KnowledgeBookmarks::decodeList("[\"//79/A==\",\"Pz4/\"]"), list);
    }

    // A store that is empty or cannot be read gives no files, says nothing, and is left as it is.
    void undecodableStoreIsLeftAlone_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addRow("empty") << QByteArray();
        QTest::addRow("cut off") << QByteArray("[\"abc");
        QTest::addRow("an object") << QByteArray("{\"a\":1}");
        QTest::addRow("a number among the strings") << QByteArray("[\"QUJD\",1]");
        QTest::addRow("not base64") << QByteArray("[\"*not base64*\"]");
    }
    void undecodableStoreIsLeftAlone()
    {
        QFETCH(QByteArray, stored);
        QVERIFY(KnowledgeBookmarks::decodeList(stored).isEmpty());
        AppSettings settings;
        settings.setKnowledgeBookmarksData(stored);
        ConsoleCapture console;
        QVERIFY(settings.getKnowledgeURLs().isEmpty());
        QVERIFY(console.lines().isEmpty());
        QCOMPARE(settings.knowledgeBookmarksData(), stored);
    }

    // A path is stored clean and absolute; any other spelling is no bookmark of ours, and "//host/..." would
    // read as a network share instead of a file.
    void pathsThatAreNoCleanLocalFileAreInvalid_data()
    {
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<QString>("suffix");
        QTest::addRow("two leading slashes") << "/"
                                             << "";
        QTest::addRow("three leading slashes") << "//"
                                               << "";
        QTest::addRow("dot segment") << ""
                                     << "/../pfad.txt";
        QTest::addRow("slash at the end") << ""
                                          << "/";
    }
    void pathsThatAreNoCleanLocalFileAreInvalid()
    {
        QFETCH(QString, prefix);
        QFETCH(QString, suffix);
        const QUrl url = makeFile(QStringLiteral("pfad.txt"));
        const QByteArray tampered = withPath(bookmark(url), prefix + url.toLocalFile() + suffix);
        QVERIFY(std::holds_alternative<KnowledgeBookmarks::Error>(KnowledgeBookmarks::resolve(tampered)));
        QVERIFY(AppSettings::resolveBookmark(tampered).isEmpty());

        AppSettings settings;
        settings.setKnowledgeBookmarksData(KnowledgeBookmarks::encodeList({tampered, bookmark(url)}));
        ConsoleCapture console;
        QCOMPARE(settings.getKnowledgeURLs(), QList<QUrl>{url});
        QCOMPARE(console.lines().first(),
                 QStringLiteral("❌ Bookmark [0] ungültig (anderer Mac?): The bookmark data is corrupted."));
        QCOMPARE(KnowledgeBookmarks::decodeList(settings.knowledgeBookmarksData()), QList{bookmark(url)});
    }

    void startUpResolutionCleansTheStore()
    {
        const QUrl first = makeFile(QStringLiteral("a.txt"));
        const QUrl second = makeFile(QStringLiteral("b.txt"));
        const QUrl third = makeFile(QStringLiteral("c.txt"));
        const QUrl gone = makeFile(QStringLiteral("gone.txt"));
        const QUrl renamedHost = makeFile(QStringLiteral("d.txt"));
        const QList<QByteArray> stored{bookmark(first), foreignBookmark(bookmark(second)), bookmark(third),
                                       bookmark(gone), foreignBookmark(bookmark(renamedHost))};
        QVERIFY(QFile::remove(second.toLocalFile()));
        QVERIFY(QFile::remove(gone.toLocalFile()));
        AppSettings settings;
        settings.setKnowledgeBookmarksData(KnowledgeBookmarks::encodeList(stored));

        ConsoleCapture console;
        QCOMPARE(settings.getKnowledgeURLs(), QList<QUrl>({first, third, renamedHost}));
        QCOMPARE(
            console.lines(),
            QStringList(
                {QStringLiteral("📁 Bookmark [0]: a.txt → resolved (stale: false, accessed: true)"),
                 QStringLiteral("❌ Bookmark [1] ungültig (anderer Mac?): The bookmark was created on "
                                "another computer."),
                 QStringLiteral("📁 Bookmark [2]: c.txt → resolved (stale: false, accessed: true)"),
                 QStringLiteral("⚠️ Bookmark [3]: gone.txt → Datei nicht gefunden (anderer Mac?), wird "
                                "entfernt"),
                 QStringLiteral("📁 Bookmark [4]: d.txt → resolved (stale: true, accessed: true)"),
                 QStringLiteral("🧹 Bereinige 2 ungültige Wissensdatei(en)")}));
        QCOMPARE(KnowledgeBookmarks::decodeList(settings.knowledgeBookmarksData()),
                 QList<QByteArray>({stored[0], stored[2], stored[4]}));
    }

    void addingAndRemovingFiles()
    {
        AppSettings settings;
        ContextManager manager(m_api);
        const QUrl first = makeFile(QStringLiteral("eins.txt"));
        const QUrl second = makeFile(QStringLiteral("zwei.txt"));
        settings.addKnowledgeFile(first, manager);
        settings.addKnowledgeFile(second, manager);
        QCOMPARE(manager.trackedFiles(), QList<QUrl>({first, second}));
        const QByteArray two = settings.knowledgeBookmarksData();
        QCOMPARE(KnowledgeBookmarks::decodeList(two).size(), 2);
        settings.addKnowledgeFile(first, manager); // already known: the store stays as it is
        QCOMPARE(settings.knowledgeBookmarksData(), two);

        {
            ConsoleCapture console;
            settings.addKnowledgeFile(QUrl::fromLocalFile(m_dir.filePath(QStringLiteral("nope.txt"))),
                                      manager);
            QCOMPARE(console.lines().size(), 1);
            QVERIFY(console.lines().first().startsWith(
                QStringLiteral("Failed to create bookmark: Error Domain=")));
        }
        QCOMPARE(KnowledgeBookmarks::decodeList(settings.knowledgeBookmarksData()).size(), 2);

        // An unresolvable element keeps its index until the next start-up clean-up.
        QList<QByteArray> stored = KnowledgeBookmarks::decodeList(settings.knowledgeBookmarksData());
        stored.prepend(foreignBookmark(bookmark(makeFile(QStringLiteral("fremd.txt")))));
        QVERIFY(QFile::remove(m_dir.filePath(QStringLiteral("fremd.txt"))));
        settings.setKnowledgeBookmarksData(KnowledgeBookmarks::encodeList(stored));
        settings.removeKnowledgeFile(2, second, manager);
        QCOMPARE(KnowledgeBookmarks::decodeList(settings.knowledgeBookmarksData()),
                 QList<QByteArray>({stored[0], stored[1]}));
        QCOMPARE(manager.trackedFiles(), QList<QUrl>({first}));

        const QByteArray before = settings.knowledgeBookmarksData();
        settings.removeKnowledgeFile(7, second, manager);
        QCOMPARE(settings.knowledgeBookmarksData(), before);
        QCoro::waitFor(manager.waitUntilIdle());
    }
};

QUILLMOOR_TEST_MAIN(TestBookmarks)
#include "tst_bookmarks.moc"
