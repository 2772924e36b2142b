#pragma once

#include "GlassWindow.h"

class SettingsScreenState;

// The settings window: glass like the chat window, with only a close button, which hides it so the same
// window comes back next time.
class SettingsWindow : public GlassWindow {
    Q_OBJECT
public:
    SettingsWindow(QQmlEngine *engine, SettingsScreenState &screen, QObject *settings);
};
