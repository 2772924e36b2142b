#include "ProviderClient.h"
#include "TestMain.h"
#include "TestProvider.h"

#include "AppSettings.h"
#include "AttachmentImageProvider.h"
#include "Chat/ChatSession.h"
#include "Core/SettingsScreenState.h"
#include "IconImageProvider.h"
#include "Services/ContextManager.h"
#include "Services/InfomaniakAPI.h"

#include <QImage>
#include <QQmlEngine>
#include <QQmlExtensionPlugin>
#include <QQuickStyle>
#include <QtQuickTest>

#include <memory>

Q_IMPORT_QML_PLUGIN(QuillmoorPlugin)

// What the view tests drive: the real session, settings and knowledge base, talking to a loopback
// provider whose answers each test scripts.
class ViewsFixture : public QObject {
    Q_OBJECT
    Q_PROPERTY(ChatSession *session READ session CONSTANT)
    Q_PROPERTY(AppSettings *settings READ settings CONSTANT)
    Q_PROPERTY(SettingsScreenState *settingsScreen READ settingsScreen CONSTANT)
public:
    ViewsFixture()
    {
        m_provider.listen();
        m_api = clientFor(m_provider);
        m_contextManager = std::make_unique<ContextManager>(m_api);
        m_session = std::make_unique<ChatSession>(*m_contextManager, m_settings);
        m_settingsScreen = std::make_unique<SettingsScreenState>(m_settings, *m_contextManager);
    }

    ChatSession *session() const { return m_session.get(); }
    AppSettings *settings() { return &m_settings; }
    SettingsScreenState *settingsScreen() const { return m_settingsScreen.get(); }

    // The next answer: these pieces, each after a pause.
    Q_INVOKABLE void scriptAnswer(const QStringList &pieces, int delayMs)
    {
        m_provider.enqueueChat(TestProvider::Response::sse(pieces, true, delayMs));
    }

    Q_INVOKABLE int chatRequests() const { return int(m_provider.requests("/chat/completions").size()); }

    // A small document or picture in the test's home, as a file URL.
    Q_INVOKABLE QUrl document(const QString &name) const
    {
        const QString path = TestEnvironment::home().filePath(name);
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write("Inhalt\n");
        return QUrl::fromLocalFile(path);
    }
    Q_INVOKABLE QUrl picture(const QString &name) const
    {
        const QString path = TestEnvironment::home().filePath(name);
        QImage image(64, 48, QImage::Format_RGB32);
        image.fill(QColor(40, 120, 200));
        image.save(path, "PNG");
        return QUrl::fromLocalFile(path);
    }

    // Back to an idle, empty screen between tests.
    Q_INVOKABLE void reset()
    {
        m_session->cancelStreaming();
        m_provider.clearScript();
        m_session->clearMessages();
        m_session->setInputText(QString());
        while (m_session->pendingAttachments()->size() > 0)
            m_session->removePendingAttachment(0);
        m_session->setDragging(false);
        m_session->setAtBottom(true);
    }

private:
    TestProvider m_provider;
    std::shared_ptr<const InfomaniakAPI> m_api;
    AppSettings m_settings;
    std::unique_ptr<ContextManager> m_contextManager;
    std::unique_ptr<ChatSession> m_session;
    std::unique_ptr<SettingsScreenState> m_settingsScreen;
};

class Setup : public QObject {
    Q_OBJECT
public:
    Setup() { TestEnvironment::isolate(); }

public slots:
    void applicationAvailable()
    {
        ImageData::allowFullSizePhotos();
        QQuickStyle::setStyle(QStringLiteral("Basic"));
        m_fixture = std::make_unique<ViewsFixture>();
        qmlRegisterSingletonInstance("QuillmoorTest", 1, 0, "Fixture", m_fixture.get());
    }

    void qmlEngineAvailable(QQmlEngine *engine)
    {
        engine->addImportPath(QStringLiteral("qrc:/qt/qml"));
        engine->addImageProvider(AttachmentImageProvider::Name,
                                 new AttachmentImageProvider(*m_fixture->session()));
        engine->addImageProvider(IconImageProvider::Name, new IconImageProvider);
    }

    void cleanupTestCase() { m_fixture.reset(); }

private:
    std::unique_ptr<ViewsFixture> m_fixture;
};

QUICK_TEST_MAIN_WITH_SETUP(views, Setup)

#include "quicktest_main.moc"
