#include "AppSettings.h"
#include "Core/Notifier.h"
#include "Core/SettingsScreenState.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "Services/KnowledgeBookmarks.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QAbstractItemModelTester>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>

// The settings screen's behaviour: accent colour, model help, prompt, knowledge rows, drops and clearing.
class TestSettingsScreen : public QObject {
    Q_OBJECT

    TestProvider m_provider;
    std::shared_ptr<const InfomaniakAPI> m_api;
    std::unique_ptr<ContextManager> m_contextManager;
    std::unique_ptr<AppSettings> m_settings;
    std::unique_ptr<SettingsScreenState> m_screen;

    QUrl makeFile(const QString &name)
    {
        return QUrl::fromLocalFile(TestEnvironment::writeFile(name, "Inhalt der Datei " + name.toUtf8()));
    }

    QStringList rowNames() const
    {
        QStringList names;
        for (const auto &row : m_screen->knowledgeRows()->rows())
            names.append(row.url.fileName());
        return names;
    }

    int storedCount() const
    {
        return int(KnowledgeBookmarks::decodeList(m_settings->knowledgeBookmarksData()).size());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_provider.listen());
        m_api = clientFor(m_provider);
    }

    void init()
    {
        m_screen.reset();
        m_contextManager.reset();
        m_settings = std::make_unique<AppSettings>();
        m_settings->setKnowledgeBookmarksData({});
        m_settings->setAccentColorIndex(0);
        m_contextManager = std::make_unique<ContextManager>(m_api);
        m_screen = std::make_unique<SettingsScreenState>(*m_settings, *m_contextManager);
        new QAbstractItemModelTester(m_screen->knowledgeRows(),
                                     QAbstractItemModelTester::FailureReportingMode::QtTest, m_screen.get());
    }

    void cleanup()
    {
        if (m_contextManager)
            QTRY_VERIFY(m_contextManager->isIdle());
    }

    void accentColourChoiceIsStored()
    {
        QSignalSpy changed(m_settings.get(), &AppSettings::accentColorIndexChanged);
        m_screen->chooseAccentColor(3);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(m_settings->accentColorIndex(), 3);
        QCOMPARE(AppSettings().accentColorIndex(), 3); // survives a restart
        QCOMPARE(m_settings->accentColor(), AppSettings::accentColors().at(3));
    }

    void modelAndPromptAreWrittenThrough()
    {
        m_screen->chooseModel(QStringLiteral("mistral3"));
        QCOMPARE(AppSettings().selectedModel(), QStringLiteral("mistral3"));
        m_screen->setMasterPrompt(QStringLiteral("Sei knapp."));
        QCOMPARE(AppSettings().masterPrompt(), QStringLiteral("Sei knapp."));
        m_screen->setMasterPrompt(QString());
        QCOMPARE(AppSettings().masterPrompt(), QString());
    }

    void droppingThreeFilesAddsThreeRowsInOrder()
    {
        QCOMPARE(m_screen->knowledgeRows()->rowCount(), 0);
        QVERIFY(!m_screen->dropFiles({}));
        QVERIFY(!m_screen->dropFiles({QUrl(QStringLiteral("https://example.org/a.pdf"))}));
        const QList<QUrl> files{makeFile(QStringLiteral("a.txt")), makeFile(QStringLiteral("b.txt")),
                                makeFile(QStringLiteral("c.txt"))};
        QVERIFY(m_screen->dropFiles(files));
        // Accepted before anything was stored.
        QCOMPARE(storedCount(), 0);
        QTRY_COMPARE(storedCount(), 3);
        QCOMPARE(rowNames(), QStringList({"a.txt", "b.txt", "c.txt"}));
        QCOMPARE(m_contextManager->trackedFiles(), files);
    }

    void droppingAKnownFileChangesNothing()
    {
        const QUrl file = makeFile(QStringLiteral("known.txt"));
        QVERIFY(m_screen->dropFiles({file}));
        QTRY_COMPARE(storedCount(), 1);
        QVERIFY(m_screen->dropFiles({file}));
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QCOMPARE(storedCount(), 1);
        QCOMPARE(m_contextManager->trackedFiles().size(), 1);
        QCOMPARE(m_screen->knowledgeRows()->rowCount(), 1);
    }

    void removingTheFirstRowReindexesTheRest()
    {
        const QUrl first = makeFile(QStringLiteral("eins.txt"));
        const QUrl second = makeFile(QStringLiteral("zwei.txt"));
        QVERIFY(m_screen->dropFiles({first, second}));
        QTRY_COMPARE(storedCount(), 2);
        m_screen->removeKnowledgeRow(0);
        QCOMPARE(rowNames(), QStringList({"zwei.txt"}));
        QCOMPARE(m_screen->knowledgeRows()->rows().first().bookmarkIndex, 0);
        QCOMPARE(m_contextManager->trackedFiles(), QList<QUrl>({second}));
        m_screen->removeKnowledgeRow(0);
        QCOMPARE(storedCount(), 0);
        QCOMPARE(m_screen->knowledgeRows()->rowCount(), 0);
        m_screen->removeKnowledgeRow(0); // no such row
    }

    void unresolvableBookmarksHaveNoRowButKeepTheirIndex()
    {
        const QUrl kept = makeFile(QStringLiteral("bleibt.txt"));
        // A bookmark made on another computer, for a file that is not here, no longer resolves.
        QJsonObject foreign =
            QJsonDocument::fromJson(std::get<QByteArray>(KnowledgeBookmarks::create(makeFile("weg.txt"))))
                .object();
        foreign.insert(QStringLiteral("machine"), QStringLiteral("another-computer"));
        QVERIFY(QFile::remove(foreign.value(QStringLiteral("path")).toString()));
        const QList<QByteArray> bookmarks{QJsonDocument(foreign).toJson(QJsonDocument::Compact),
                                          std::get<QByteArray>(KnowledgeBookmarks::create(kept))};
        m_settings->setKnowledgeBookmarksData(KnowledgeBookmarks::encodeList(bookmarks));
        QCOMPARE(rowNames(), QStringList({"bleibt.txt"}));
        QCOMPARE(m_screen->knowledgeRows()->rows().first().bookmarkIndex, 1);
        const QModelIndex row = m_screen->knowledgeRows()->index(0);
        QCOMPARE(row.data(KnowledgeRowsModel::NameRole).toString(), QStringLiteral("bleibt.txt"));
        QCOMPARE(row.data(KnowledgeRowsModel::UrlRole).toUrl(), kept);

        m_screen->removeKnowledgeRow(0);
        // Exactly element 1 went; the stale first entry stays until the next start-up.
        QCOMPARE(KnowledgeBookmarks::decodeList(m_settings->knowledgeBookmarksData()),
                 QList<QByteArray>({bookmarks.first()}));
        QCOMPARE(m_screen->knowledgeRows()->rowCount(), 0);
    }

    void clearChatPostsTheNotification()
    {
        QSignalSpy posted(&Notifier::instance(), &Notifier::posted);
        m_screen->clearChat();
        QCOMPARE(posted.size(), 1);
        QCOMPARE(posted.first().first().toString(), QStringLiteral("clearChatMemory"));
    }

    void cleanupTestCase()
    {
        m_screen.reset();
        m_contextManager.reset();
    }
};

QUILLMOOR_TEST_MAIN(TestSettingsScreen)

#include "tst_settingsscreen.moc"
