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

// What the view tests drive: the real session, settings and knowledge base, talking to a loopback
// provider whose answers each test scripts.
class ViewsFixture : public QObject {
    Q_OBJECT
    Q_PROPERTY(ChatSession *session READ session CONSTANT)
    Q_PROPERTY(AppSettings *settings READ settings CONSTANT)
    Q_PROPERTY(SettingsScreenState *settingsScreen READ settingsScreen CONSTANT)
public:
    ViewsFixture()
        : m_settingsScreen(m_app.settings, *m_app.knowledge)
    {
    }

    ChatSession *session() const { return m_app.session.get(); }
    AppSettings *settings() { return &m_app.settings; }
    SettingsScreenState *settingsScreen() { return &m_settingsScreen; }

    // The next answer: these pieces, each after a pause.
    Q_INVOKABLE void scriptAnswer(const QStringList &pieces, int delayMs)
    {
        m_app.provider.enqueueChat(TestProvider::Response::sse(pieces, true, delayMs));
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

    void settle() { QCoro::waitFor(m_app.knowledge->waitUntilIdle()); }

    // Back to an idle, empty screen between tests.
    Q_INVOKABLE void reset()
    {
        m_app.session->cancelStreaming();
        m_app.provider.clearScript();
        m_app.session->clearMessages();
        m_app.session->setInputText(QString());
        while (m_app.session->pendingAttachments()->size() > 0)
            m_app.session->removePendingAttachment(0);
        m_app.session->setDragging(false);
        m_app.session->setAtBottom(true);
    }

private:
    SessionFixture m_app;
    SettingsScreenState m_settingsScreen;
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

    // Knowledge still being processed holds the vector cache and its thread; it ends before the fixture goes.
    void cleanupTestCase()
    {
        m_fixture->settle();
        m_fixture.reset();
    }

private:
    std::unique_ptr<ViewsFixture> m_fixture;
};

QUICK_TEST_MAIN_WITH_SETUP(views, Setup)

#include "quicktest_main.moc"
