#pragma once

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

class AppSettings;
class ChatSession;
class ContextManager;
class FloatingWindow;
class InfomaniakAPI;
class MiniLogoWindow;
class QQmlEngine;
class QQuickWindow;
class QWindow;
class SettingsScreenState;
class SettingsWindow;

// Owns the long-lived services and the windows, and switches between the chat window and the logo of
// mini mode. Other parts reach it through the process-wide notifications only.
class AppDelegate : public QObject {
    Q_OBJECT
public:
    static constexpr int FadeMs = 200;

    AppDelegate();
    ~AppDelegate() override;

    // Shows the chat window, starts listening to the notifications and loads the stored knowledge files.
    void applicationDidFinishLaunching();

    FloatingWindow *floatingWindow() const { return m_floatingWindow.get(); }
    MiniLogoWindow *miniWindow() const { return m_miniWindow.get(); }
    SettingsWindow *settingsWindow() const { return m_settingsWindow.get(); }
    AppSettings &settings() { return *m_settings; }
    ContextManager &contextManager() { return *m_contextManager; }
    ChatSession &session() { return *m_session; }
    bool isTransitioning() const { return m_transitioning; }

public slots:
    void openSettings();
    void showAbout();

private slots:
    void minimizeToTiny();
    void expandFromMiniMode();

private:
    void onNotification(const QString &name);
    void loadKnowledgeFiles();
    // Fades `window` to `opacity`, then calls `done`.
    void fade(QWindow *window, qreal opacity, std::function<void()> done);

    std::unique_ptr<FloatingWindow> m_floatingWindow;
    std::unique_ptr<MiniLogoWindow> m_miniWindow;
    std::unique_ptr<SettingsWindow> m_settingsWindow;
    std::shared_ptr<const InfomaniakAPI> m_api;
    std::unique_ptr<ContextManager> m_contextManager;
    std::unique_ptr<AppSettings> m_settings;

    std::unique_ptr<ChatSession> m_session;
    std::unique_ptr<SettingsScreenState> m_settingsScreen;
    std::unique_ptr<QQmlEngine> m_engine;
    QPointer<QQuickWindow> m_aboutDialog;
    // A second request while a 0.4 s switch is running would stack windows; it is ignored instead.
    bool m_transitioning = false;
};
