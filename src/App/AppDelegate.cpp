#include "AppDelegate.h"

#include "AppSettings.h"
#include "AttachmentImageProvider.h"
#include "Chat/ChatSession.h"
#include "Core/Console.h"
#include "Core/Notifier.h"
#include "Core/SettingsScreenState.h"
#include "Core/WindowGeometry.h"
#include "IconImageProvider.h"
#include "Services/ContextManager.h"
#include "Services/InfomaniakAPI.h"
#include "Services/KnowledgeBookmarks.h"
#include "Services/ServerModels.h"
#include "Window/FloatingWindow.h"
#include "Window/MiniLogoWindow.h"
#include "Window/SettingsWindow.h"

#include <QGuiApplication>
#include <QPropertyAnimation>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQmlExtensionPlugin>
#include <QQuickWindow>

Q_IMPORT_QML_PLUGIN(QuillmoorPlugin)

AppDelegate::AppDelegate()
    : m_api(std::make_shared<const InfomaniakAPI>(InfomaniakAPI::fromEnvironment()))
    , m_settings(std::make_unique<AppSettings>())
{
    // The knowledge base's constructor opens the debug log, so it comes after the client and the settings.
    m_contextManager = std::make_unique<ContextManager>(m_api);
    m_session = std::make_unique<ChatSession>(*m_contextManager, *m_settings);
}

AppDelegate::~AppDelegate()
{
    // Windows first: their views hold the session and the settings.
    delete m_aboutDialog.data();
    m_miniWindow.reset();
    m_settingsWindow.reset();
    m_floatingWindow.reset();
    m_settingsScreen.reset();
    m_engine.reset();
}

void AppDelegate::applicationDidFinishLaunching()
{
    // The shell's windows are tool windows, so closing one must not end the run.
    QGuiApplication::setQuitOnLastWindowClosed(false);

    m_engine = std::make_unique<QQmlEngine>();
    m_engine->addImportPath(QStringLiteral("qrc:/qt/qml"));
    m_engine->addImageProvider(AttachmentImageProvider::Name, new AttachmentImageProvider(*m_session));
    m_engine->addImageProvider(IconImageProvider::Name, new IconImageProvider);

    QPointer<AppDelegate> self(this);
    m_floatingWindow = std::make_unique<FloatingWindow>(m_engine.get(), *m_session, *m_settings, [self] {
        if (self)
            self->minimizeToTiny();
    });
    connect(m_floatingWindow.get(), &FloatingWindow::settingsRequested, this, &AppDelegate::openSettings);
    connect(m_floatingWindow.get(), &FloatingWindow::aboutRequested, this, &AppDelegate::showAbout);
    m_floatingWindow->center();
    m_floatingWindow->show();
    m_floatingWindow->requestActivate();

    connect(&Notifier::instance(), &Notifier::posted, this, &AppDelegate::onNotification);

    // The catalogue's names exist only at the original provider; a server of the user's own has its own.
    if (m_api->hasCustomEndpoint())
        ServerModels::offer(m_api, m_settings.get());

    loadKnowledgeFiles();
}

void AppDelegate::loadKnowledgeFiles()
{
    const QList<QUrl> urls = m_settings->getKnowledgeURLs();
    const QByteArray stored = m_settings->knowledgeBookmarksData();
    const qsizetype bookmarks = KnowledgeBookmarks::decodeList(stored).size();
    Console::line(QStringLiteral("🚀 App startup: Found %1 knowledge URLs from %2 bookmarks")
                      .arg(urls.size())
                      .arg(bookmarks));
    Console::line(QStringLiteral("🚀 knowledgeBookmarksData size: %1 bytes").arg(stored.size()));
    for (const QUrl &url : urls) {
        Console::line(QStringLiteral("🚀 Loading knowledge file: %1").arg(url.fileName()));
        m_contextManager->addFile(url);
    }
}

void AppDelegate::onNotification(const QString &name)
{
    if (name == Notifier::ExpandFromMiniMode)
        expandFromMiniMode();
    else if (name == Notifier::OpenSettings)
        openSettings();
}

void AppDelegate::openSettings()
{
    Console::line(QStringLiteral("openSettings called"));
    if (m_settingsWindow) {
        Console::line(QStringLiteral("Using existing Settings Window"));
    } else {
        Console::line(QStringLiteral("Creating new Settings Window"));
        m_settingsScreen = std::make_unique<SettingsScreenState>(*m_settings, *m_contextManager);
        m_settingsWindow =
            std::make_unique<SettingsWindow>(m_engine.get(), *m_settingsScreen, m_settings.get());
        m_settingsWindow->setTitle(QStringLiteral("Einstellungen"));
        m_settingsWindow->center();
    }
    m_settingsScreen->refresh();
    m_settingsWindow->show();
    m_settingsWindow->raise();
    m_settingsWindow->requestActivate();
    Console::line(QStringLiteral("Window ordered front"));
}

void AppDelegate::showAbout()
{
    if (!m_aboutDialog) {
        QQmlComponent component(m_engine.get(),
                                QUrl(QStringLiteral("qrc:/qt/qml/Quillmoor/AboutDialog.qml")));
        QObject *created = component.createWithInitialProperties(
            {{QStringLiteral("version"), QCoreApplication::applicationVersion()}});
        m_aboutDialog = qobject_cast<QQuickWindow *>(created);
        if (!m_aboutDialog) {
            delete created;
            return;
        }
    }
    m_aboutDialog->show();
    m_aboutDialog->raise();
    m_aboutDialog->requestActivate();
}

void AppDelegate::fade(QWindow *window, qreal opacity, std::function<void()> done)
{
    auto *animation = new QPropertyAnimation(window, "opacity", window);
    animation->setDuration(FadeMs);
    animation->setEndValue(opacity);
    connect(animation, &QPropertyAnimation::finished, this, std::move(done));
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}

void AppDelegate::minimizeToTiny()
{
    if (!m_floatingWindow || m_transitioning)
        return;
    m_transitioning = true;
    const QRect logoFrame = WindowGeometry::logoFrameFor(m_floatingWindow->contentFrame());
    fade(m_floatingWindow.get(), 0.0, [this, logoFrame] {
        m_floatingWindow->hide();
        m_miniWindow = std::make_unique<MiniLogoWindow>(m_engine.get(), *m_settings);
        connect(m_miniWindow.get(), &MiniLogoWindow::clicked, this,
                [] { Notifier::instance().post(Notifier::ExpandFromMiniMode); });
        m_miniWindow->setGeometry(logoFrame);
        m_miniWindow->setOpacity(0.0);
        m_miniWindow->show();
        m_miniWindow->requestActivate();
        fade(m_miniWindow.get(), 1.0, [this] { m_transitioning = false; });
    });
}

void AppDelegate::expandFromMiniMode()
{
    if (!m_miniWindow || m_transitioning)
        return;
    m_transitioning = true;
    const QRect chatFrame = WindowGeometry::chatFrameFor(m_miniWindow->geometry());
    fade(m_miniWindow.get(), 0.0, [this, chatFrame] {
        m_miniWindow->hide();
        // Released later: this runs inside one of its animation's signals.
        m_miniWindow.release()->deleteLater();
        m_floatingWindow->setContentFrame(chatFrame);
        m_floatingWindow->setOpacity(0.0);
        m_floatingWindow->show();
        m_floatingWindow->requestActivate();
        fade(m_floatingWindow.get(), 1.0, [this] { m_transitioning = false; });
    });
}
