#include "AppActions.h"

#include "Core/Console.h"
#include "Core/Notifier.h"

#include <QCoreApplication>

void AppActions::openSettings()
{
    Console::line(QStringLiteral("Settings button clicked - Posting Notification"));
    Notifier::instance().post(Notifier::OpenSettings);
}

void AppActions::quit()
{
    QCoreApplication::quit();
}
