#pragma once

#include "GlassWindow.h"

#include <functional>

class AppSettings;
class ChatSession;

// The chat window. It is hidden, never closed, in mini mode, so the conversation survives.
class FloatingWindow : public GlassWindow {
    Q_OBJECT
public:
    FloatingWindow(QQmlEngine *engine, ChatSession &session, AppSettings &settings,
                   std::function<void()> onMinimize);

protected:
    // The question field takes the keyboard whenever the window appears.
    void showEvent(QShowEvent *event) override;

signals:
    // The window's own menu: the settings and the About dialog.
    void settingsRequested();
    void aboutRequested();

private slots:
    void minimize()
    {
        if (m_onMinimize)
            m_onMinimize();
    }

private:
    std::function<void()> m_onMinimize;
};
