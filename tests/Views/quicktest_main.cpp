#include "SessionFixture.h"
#include "TestMain.h"

#include "AttachmentImageProvider.h"
#include "Core/SettingsScreenState.h"
#include "IconImageProvider.h"

#include <QQmlEngine>
#include <QQmlExtensionPlugin>
#include <QQuickStyle>
#include <QtQuickTest>

#include <memory>

Q_IMPORT_QML_PLUGIN(QuillmoorPlugin)

// What the view tests drive (as the singleton "Fixture"): the real session, settings and knowledge base,
// talking to a loopback provider whose answers each test scripts.
class Setup : public QObject {
    Q_OBJECT
    Q_PROPERTY(ChatSession *session READ session CONSTANT)
    Q_PROPERTY(AppSettings *settings READ settings CONSTANT)
    Q_PROPERTY(SettingsScreenState *settingsScreen READ settingsScreen CONSTANT)
public:
    Setup() { TestEnvironment::isolate(); }

    ChatSession *session() const { return m_app->session.get(); }
    AppSettings *settings() { return &m_app->settings; }
    SettingsScreenState *settingsScreen() { return m_settingsScreen.get(); }

    // The next answer: these pieces, each after a pause.
    Q_INVOKABLE void scriptAnswer(const QStringList &pieces, int delayMs)
    {
        m_app->provider.enqueueChat(TestProvider::Response::sse(pieces, true, delayMs));
    }

    // A small document or picture in the test's home, as a file URL.
    Q_INVOKABLE QUrl document(const QString &name) const
    {
        return QUrl::fromLocalFile(TestEnvironment::writeFile(name, "Inhalt\n"));
    }
    Q_INVOKABLE QUrl picture(const QString &name) const
    {
        return QUrl::fromLocalFile(TestEnvironment::writePicture(name, {64, 48}, QColor(40, 120, 200)));
    }

    // Back to an idle, empty screen with the default model between tests.
    Q_INVOKABLE void reset()
    {
        ChatSession &session = *m_app->session;
        session.cancelStreaming();
        m_app->provider.clearScript();
        m_app->settings.setSelectedModel(AppSettings::DefaultModel);
        session.clearMessages();
        session.setInputText(QString());
        while (session.pendingAttachments()->size() > 0)
            session.removePendingAttachment(0);
        session.setDragging(false);
        session.setAtBottom(true);
    }

public slots:
    void applicationAvailable()
    {
        ImageData::allowFullSizePhotos();
        QQuickStyle::setStyle(QStringLiteral("Basic"));
        m_app = std::make_unique<SessionFixture>();
        m_settingsScreen = std::make_unique<SettingsScreenState>(m_app->settings, *m_app->knowledge);
        qmlRegisterSingletonInstance("QuillmoorTest", 1, 0, "Fixture", this);
    }

    void qmlEngineAvailable(QQmlEngine *engine)
    {
        engine->addImportPath(QStringLiteral("qrc:/qt/qml"));
        engine->addImageProvider(AttachmentImageProvider::Name, new AttachmentImageProvider(*session()));
        engine->addImageProvider(IconImageProvider::Name, new IconImageProvider);
    }

    // Knowledge still being processed holds the vector cache and its thread; it ends before the fixture goes.
    void cleanupTestCase()
    {
        QCoro::waitFor(m_app->knowledge->waitUntilIdle());
        m_settingsScreen.reset();
        m_app.reset();
    }

private:
    std::unique_ptr<SessionFixture> m_app;
    std::unique_ptr<SettingsScreenState> m_settingsScreen;
};

QUICK_TEST_MAIN_WITH_SETUP(views, Setup)

#include "quicktest_main.moc"
