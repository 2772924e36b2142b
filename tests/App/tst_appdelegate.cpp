#include "AppDelegate.h"
#include "AppSettings.h"
#include "Chat/ChatSession.h"
#include "ConsoleCapture.h"
#include "Core/Notifier.h"
#include "Core/SettingsScreenState.h"
#include "Services/ContextManager.h"
#include "TestMain.h"
#include "TestProvider.h"
#include "Window/FloatingWindow.h"
#include "Window/HelpTipWindow.h"
#include "Window/MiniLogoWindow.h"
#include "Window/SettingsWindow.h"

#include <QQuickItem>
#include <QSignalSpy>

Q_DECLARE_METATYPE(TestProvider::Response)

class TestAppDelegate : public QObject {
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(m_provider.listen());
        qputenv("QUILLMOOR_API_BASE_URL", m_provider.baseUrl().toString().toUtf8());
    }

    // What the user dropped into the settings comes back, in order, after a restart; a file that went
    // missing meanwhile is dropped from the store.
    void knowledgeFilesComeBackAfterARestart()
    {
        const QUrl first =
            QUrl::fromLocalFile(TestEnvironment::writeFile(QStringLiteral("Preise.csv"), "A\tB\n1\t2\n"));
        const QUrl second =
            QUrl::fromLocalFile(TestEnvironment::writeFile(QStringLiteral("notiz.txt"), "Notiz"));
        const QUrl gone = QUrl::fromLocalFile(TestEnvironment::writeFile(QStringLiteral("weg.txt"), "weg"));
        {
            AppDelegate delegate;
            delegate.applicationDidFinishLaunching();
            QVERIFY(delegate.floatingWindow()->isVisible());
            for (const QUrl &url : {first, second, gone})
                delegate.settings().addKnowledgeFile(url, delegate.contextManager());
            QCOMPARE(delegate.contextManager().trackedFiles(), (QList<QUrl>{first, second, gone}));
            QCoro::waitFor(delegate.contextManager().waitUntilIdle());
        }
        QVERIFY(QFile::remove(gone.toLocalFile()));

        ConsoleCapture console;
        AppDelegate restarted;
        restarted.applicationDidFinishLaunching();
        QCOMPARE(restarted.contextManager().trackedFiles(), (QList<QUrl>{first, second}));
        QVERIFY(console.contains(QStringLiteral("🚀 Loading knowledge file: Preise.csv")));
        QVERIFY(console.contains(QStringLiteral("🚀 Loading knowledge file: notiz.txt")));
        QVERIFY(console.text().contains(QStringLiteral("🚀 App startup: Found 2 knowledge URLs")));
        QCoro::waitFor(restarted.contextManager().waitUntilIdle());
        QCOMPARE(restarted.contextManager().fileTexts().value(second), QStringLiteral("Notiz"));
        QCOMPARE(AppSettings().getKnowledgeURLs(), (QList<QUrl>{first, second}));
    }

    // A server of the user's own is asked once for its models: they follow the catalogue in the picker and
    // the stored choice stays; a server without a list leaves the picker as it is. One console line either
    // way.
    void pickerOffersTheServersModels_data()
    {
        QTest::addColumn<TestProvider::Response>("answer");
        QTest::addColumn<QStringList>("added");
        QTest::addRow("list") << TestProvider::Response::modelList({QStringLiteral("qwen3"),
                                                                    QStringLiteral("llama3.2:3b"),
                                                                    QStringLiteral("nomic-embed-text")})
                              << QStringList{QStringLiteral("llama3.2:3b"),
                                             QStringLiteral("nomic-embed-text")};
        QTest::addRow("no list") << TestProvider::Response::json(404, R"({"error":"not found"})")
                                 << QStringList();
        QTest::addRow("error") << TestProvider::Response::text(500, "upstream down") << QStringList();
        QTest::addRow("another shape")
            << TestProvider::Response::json(200, R"({"models":[{"name":"a"}]})") << QStringList();
        QTest::addRow("empty list") << TestProvider::Response::modelList({}) << QStringList();
    }
    void pickerOffersTheServersModels()
    {
        QFETCH(TestProvider::Response, answer);
        QFETCH(QStringList, added);
        const QString stored = QStringLiteral("llama3.2:3b");
        AppSettings().setSelectedModel(stored);
        m_provider.clearRequests();
        m_provider.enqueueModels(answer);

        ConsoleCapture console;
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        const auto modelLines = [&console] { return console.lines().filter(QStringLiteral("/v1/models")); };
        QTRY_COMPARE(modelLines().size(), 1);
        QCOMPARE(m_provider.requests("/models").size(), 1);
        QCOMPARE(m_provider.requests("/models").first().method, QByteArray("GET"));

        const QStringList expected = QStringList{QStringLiteral("swiss-ai/Apertus-70B-Instruct-2509"),
                                                 QStringLiteral("mistral3"), QStringLiteral("qwen3")} +
                                     added;
        QCOMPARE(delegate.settings().availableModels(), expected);
        delegate.openSettings();
        auto *picker =
            delegate.settingsWindow()->rootObject()->findChild<QQuickItem *>(QStringLiteral("modelPicker"));
        QVERIFY(picker);
        QCOMPARE(picker->property("count").toInt(), expected.size());
        QCOMPARE(picker->property("currentIndex").toInt(), int(expected.indexOf(stored)));
        QCOMPARE(picker->property("displayText").toString(), stored);
        QCOMPARE(AppSettings().selectedModel(), stored);
        QCOMPARE(SettingsScreenState::modelHelpText(stored), QString());
        AppSettings().setSelectedModel(AppSettings::DefaultModel);
    }

    // Typing goes into the question field at launch and whenever the chat window comes back from mini
    // mode, wherever the keyboard was before. Resting on the logo opens its help in a window of its own,
    // beside the logo; a press closes it. The way back keeps the frame and the conversation.
    void miniModeRoundTrip()
    {
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        FloatingWindow *chat = delegate.floatingWindow();
        const QRect frame = chat->geometry();
        delegate.session().appendMessage(Message(QStringLiteral("bleibt"), true));
        QTRY_VERIFY(chat->activeFocusItem());
        QCOMPARE(chat->activeFocusItem()->objectName(), QStringLiteral("inputField"));
        auto *logoButton = chat->rootObject()->findChild<QQuickItem *>(QStringLiteral("logoButton"));
        QVERIFY(logoButton);
        logoButton->forceActiveFocus(Qt::TabFocusReason);
        QCOMPARE(chat->activeFocusItem(), logoButton);

        QMetaObject::invokeMethod(&delegate, "minimizeToTiny");
        QTRY_VERIFY(delegate.miniWindow() && delegate.miniWindow()->isVisible());
        QTRY_VERIFY(!chat->isVisible() && !delegate.isTransitioning());
        MiniLogoWindow *logo = delegate.miniWindow();
        const QPointF centre(35, 35);
        QEnterEvent enter(centre, centre, logo->mapToGlobal(centre));
        QCoreApplication::sendEvent(logo, &enter);
        QVERIFY(!logo->helpTip() || !logo->helpTip()->isVisible()); // not at once
        QTRY_VERIFY(logo->helpTip() && logo->helpTip()->isVisible());
        QCOMPARE(logo->helpTip()->text(), QStringLiteral("Click to open Quillmoor"));
        QVERIFY(logo->helpTip()->geometry().top() >= logo->geometry().bottom() ||
                logo->helpTip()->geometry().bottom() <= logo->geometry().top());
        QTest::mousePress(logo, Qt::LeftButton, {}, centre.toPoint());
        QVERIFY(!logo->helpTip()->isVisible());
        QTest::mouseRelease(logo, Qt::LeftButton, {}, centre.toPoint());

        Notifier::instance().post(Notifier::ExpandFromMiniMode);
        QTRY_VERIFY(chat->isVisible() && !delegate.isTransitioning());
        QTRY_VERIFY(!delegate.miniWindow() || !delegate.miniWindow()->isVisible());
        QCOMPARE(chat->geometry(), frame); // the logo did not move: the same frame
        QCOMPARE(delegate.session().messages()->size(), 1);
        QTRY_COMPARE(chat->activeFocusItem()->objectName(), QStringLiteral("inputField"));

        // The settings window is made once and reused.
        Notifier::instance().post(Notifier::OpenSettings);
        QTRY_VERIFY(delegate.settingsWindow() && delegate.settingsWindow()->isVisible());
        const auto *settingsWindow = delegate.settingsWindow();
        delegate.settingsWindow()->hide();
        delegate.openSettings();
        QCOMPARE(delegate.settingsWindow(), settingsWindow);
        QVERIFY(delegate.settingsWindow()->isVisible());
    }

private:
    TestProvider m_provider;
};

QUILLMOOR_TEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
