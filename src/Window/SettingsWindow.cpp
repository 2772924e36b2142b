#include "SettingsWindow.h"

#include "Core/SettingsScreenState.h"

#include <QQuickItem>

SettingsWindow::SettingsWindow(QQmlEngine *engine, SettingsScreenState &screen, QObject *settings)
    : GlassWindow(engine, QUrl(QStringLiteral("qrc:/qt/qml/Quillmoor/SettingsWindowView.qml")),
                  {{QStringLiteral("screen"), QVariant::fromValue(&screen)},
                   {QStringLiteral("settings"), QVariant::fromValue(settings)}})
{
    if (QQuickItem *root = rootObject())
        connect(root, SIGNAL(closeRequested()), this, SLOT(hide()));
}
