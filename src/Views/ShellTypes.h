#pragma once

#include "Core/SettingsScreenState.h"

#include <QQmlEngine>

// The settings screen's state and its knowledge rows as typed QML properties; the shell makes them.
struct SettingsScreenStateForeign {
    Q_GADGET
    QML_FOREIGN(SettingsScreenState)
    QML_NAMED_ELEMENT(SettingsScreenState)
    QML_UNCREATABLE("made by the application")
};

struct KnowledgeRowsModelForeign {
    Q_GADGET
    QML_FOREIGN(KnowledgeRowsModel)
    QML_NAMED_ELEMENT(KnowledgeRowsModel)
    QML_UNCREATABLE("owned by the settings screen")
};
