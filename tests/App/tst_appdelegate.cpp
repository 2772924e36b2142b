#include "../Services/KnowledgeTestUtil.h"
#include "AppDelegate.h"
#include "AppSettings.h"
#include "CaseFiles.h"
#include "Chat/ChatSession.h"
#include "ConsoleCapture.h"
#include "Core/Notifier.h"
#include "Core/SettingsScreenState.h"
#include "Services/ContextManager.h"
#include "Services/InfomaniakAPI.h"
#include "Services/KnowledgeBookmarks.h"
#include "Window/FloatingWindow.h"
#include "Window/HelpTipWindow.h"
#include "Window/MiniLogoWindow.h"
#include "Window/SettingsWindow.h"

#include <QAbstractItemModelTester>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QQuickItem>

class TestAppDelegate : public QObject {
    Q_OBJECT

    static std::unique_ptr<SettingsScreenState> screenOf(AppDelegate &delegate)
    {
        auto screen = std::make_unique<SettingsScreenState>(delegate.settings(), delegate.contextManager());
        new QAbstractItemModelTester(screen->knowledgeRows(),
                                     QAbstractItemModelTester::FailureReportingMode::QtTest, screen.get());
        return screen;
    }
    static QStringList rowNames(SettingsScreenState &screen)
    {
        QStringList names;
        for (const auto &row : screen.knowledgeRows()->rows())
            names.append(row.url.fileName());
        return names;
    }

private slots:
    // A server of each test's own: a late request of an earlier test's delegate cannot take its answers.
    void init()
    {
        m_provider = std::make_unique<TestProvider>();
        QVERIFY(m_provider->listen());
        qputenv("QUILLMOOR_API_BASE_URL", m_provider->baseUrl().toString().toUtf8());
    }
    // Each start asks for the server's models; that request ends before the next test (or the process).
    void cleanup() { QTRY_VERIFY(InfomaniakAPI::network().findChildren<QNetworkReply *>().isEmpty()); }

    // What the user dropped into the settings is added in order on later turns, and comes back after a
    // restart, less what went missing meanwhile.
    void knowledgeFilesComeBackAfterARestart()
    {
        const QUrl first = KnowledgeTest::writeFile(QStringLiteral("Preise.csv"), "A\tB\n1\t2\n");
        const QUrl second = KnowledgeTest::writeFile(QStringLiteral("notiz.txt"), "Notiz");
        const QUrl gone = KnowledgeTest::writeFile(QStringLiteral("weg.txt"), "weg");
        {
            AppDelegate delegate;
            delegate.applicationDidFinishLaunching();
            const auto screen = screenOf(delegate);
            QVERIFY(!screen->dropFiles({}));
            QVERIFY(!screen->dropFiles({QUrl(QStringLiteral("https://example.org/a.pdf"))}));
            QVERIFY(screen->dropFiles({first, second, gone}));
            // Accepted before anything was stored.
            QVERIFY(delegate.contextManager().trackedFiles().isEmpty());
            QTRY_COMPARE(delegate.contextManager().trackedFiles(), (QList<QUrl>{first, second, gone}));
            QCOMPARE(rowNames(*screen), QStringList({"Preise.csv", "notiz.txt", "weg.txt"}));
            QCoro::waitFor(delegate.contextManager().waitUntilIdle());
        }
        QVERIFY(QFile::remove(gone.toLocalFile()));

        ConsoleCapture console;
        AppDelegate restarted;
        restarted.applicationDidFinishLaunching();
        QCOMPARE(restarted.contextManager().trackedFiles(), (QList<QUrl>{first, second}));
        QVERIFY(console.text().contains(QStringLiteral("🚀 App startup: Found 2 knowledge URLs")));
        QCoro::waitFor(restarted.contextManager().waitUntilIdle());
        QCOMPARE(restarted.contextManager().fileTexts().value(second), QStringLiteral("Notiz"));
    }

    // A server of the user's own is asked once for its models: they follow the catalogue in the picker and
    // the stored choice stays; a server without a list leaves the picker as it is. The answers are in
    // tests/data/appdelegate.
    void pickerOffersTheServersModels_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QJsonObject>("body");
        QTest::addColumn<QStringList>("added");
        const auto cases = CaseFiles::cases(QStringLiteral("appdelegate"));
        QVERIFY(!cases.isEmpty());
        for (const auto &[row, values] : cases)
            QTest::newRow(row.constData())
                << values.at(0).toInt() << values.at(1).toObject() << values.at(2).toVariant().toStringList();
    }
    void pickerOffersTheServersModels()
    {
        QFETCH(int, status);
        QFETCH(QJsonObject, body);
        QFETCH(QStringList, added);
        const QString stored = QStringLiteral("llama3.2:3b");
        AppSettings().setSelectedModel(stored);
        m_provider->enqueueModels(TestProvider::Response::body(status, QJsonDocument(body).toJson()));

        ConsoleCapture console;
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        QTRY_COMPARE(console.lines().filter(QStringLiteral("/v1/models")).size(), 1);
        QCOMPARE(m_provider->requests("/models").size(), 1);

        const QStringList expected = QStringList{QStringLiteral("swiss-ai/Apertus-70B-Instruct-2509"),
                                                 QStringLiteral("mistral3"), QStringLiteral("qwen3")} +
                                     added;
        QCOMPARE(delegate.settings().availableModels(), expected);
        delegate.openSettings();
        SettingsWindow *window = delegate.settingsWindow();
        window->hide();
        delegate.openSettings();
        QCOMPARE(delegate.settingsWindow(), window); // made once and reused
        QVERIFY(window->isVisible());
        auto *picker = window->rootObject()->findChild<QQuickItem *>(QStringLiteral("modelPicker"));
        QVERIFY(picker);
        QCOMPARE(picker->property("count").toInt(), expected.size());
        QCOMPARE(picker->property("currentIndex").toInt(), int(expected.indexOf(stored)));
        QCOMPARE(AppSettings().selectedModel(), stored);
        AppSettings().setSelectedModel(AppSettings::DefaultModel);
    }

    // Resting on the logo opens its help after a delay in a window of its own (placed by the mini geometry);
    // a press closes it. The way back keeps the frame and the conversation.
    void miniModeRoundTrip()
    {
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        FloatingWindow *chat = delegate.floatingWindow();
        const QRect frame = chat->geometry();
        delegate.session().appendMessage(Message(QStringLiteral("bleibt"), true));
        QMetaObject::invokeMethod(&delegate, "minimizeToTiny");
        QTRY_VERIFY(delegate.miniWindow() && delegate.miniWindow()->isVisible());
        QTRY_VERIFY(!chat->isVisible() && !delegate.isTransitioning());
        MiniLogoWindow *logo = delegate.miniWindow();
        const QPointF centre(35, 35);
        QEnterEvent enter(centre, centre, logo->mapToGlobal(centre));
        QCoreApplication::sendEvent(logo, &enter);
        QVERIFY(!logo->helpTip() || !logo->helpTip()->isVisible()); // not at once
        QTRY_VERIFY(logo->helpTip() && logo->helpTip()->isVisible());
        QTest::mousePress(logo, Qt::LeftButton, {}, centre.toPoint());
        QVERIFY(!logo->helpTip()->isVisible());
        QTest::mouseRelease(logo, Qt::LeftButton, {}, centre.toPoint());

        Notifier::instance().post(Notifier::ExpandFromMiniMode);
        QTRY_VERIFY(chat->isVisible() && !delegate.isTransitioning());
        QTRY_VERIFY(!delegate.miniWindow() || !delegate.miniWindow()->isVisible());
        QCOMPARE(chat->geometry(), frame); // the logo did not move: the same frame
        QCOMPARE(delegate.session().messages()->size(), 1);
    }

    // A stored bookmark that no longer resolves has no row but keeps its place until the next start-up, so
    // each row removes the element it came from.
    void rowsRemoveTheirOwnStoredElement()
    {
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        const auto screen = screenOf(delegate);
        // Made on another computer, for a file that is not here.
        const QUrl gone = KnowledgeTest::writeFile(QStringLiteral("fremd.txt"), "fremd");
        QJsonObject foreign =
            QJsonDocument::fromJson(std::get<QByteArray>(KnowledgeBookmarks::create(gone))).object();
        foreign.insert(QStringLiteral("machine"), QStringLiteral("another-computer"));
        QVERIFY(QFile::remove(gone.toLocalFile()));
        QList<QByteArray> stored{QJsonDocument(foreign).toJson(QJsonDocument::Compact)};
        for (const QString &name : {QStringLiteral("eins.txt"), QStringLiteral("zwei.txt")})
            stored.append(
                std::get<QByteArray>(KnowledgeBookmarks::create(KnowledgeTest::writeFile(name, "Inhalt"))));
        delegate.settings().setKnowledgeBookmarksData(KnowledgeBookmarks::encodeList(stored));
        QCOMPARE(rowNames(*screen), QStringList({"eins.txt", "zwei.txt"}));
        const QModelIndex row = screen->knowledgeRows()->index(1);
        QCOMPARE(row.data(KnowledgeRowsModel::NameRole).toString(), QStringLiteral("zwei.txt"));
        QCOMPARE(row.data(KnowledgeRowsModel::BookmarkIndexRole).toInt(), 2);

        screen->removeKnowledgeRow(0);
        QCOMPARE(KnowledgeBookmarks::decodeList(delegate.settings().knowledgeBookmarksData()),
                 QList<QByteArray>({stored[0], stored[2]}));
        QCOMPARE(screen->knowledgeRows()->rows().first().bookmarkIndex, 1);
    }

private:
    std::unique_ptr<TestProvider> m_provider;
};

QUILLMOOR_TEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
