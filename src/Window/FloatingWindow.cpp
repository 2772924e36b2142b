#include "FloatingWindow.h"

#include "AppSettings.h"
#include "Chat/ChatSession.h"

#include <QQuickItem>

FloatingWindow::FloatingWindow(QQmlEngine *engine, ChatSession &session, AppSettings &settings,
                               std::function<void()> onMinimize)
    : GlassWindow(engine, QUrl(QStringLiteral("qrc:/qt/qml/Quillmoor/FloatingWindowView.qml")),
                  {{QStringLiteral("session"), QVariant::fromValue(&session)},
                   {QStringLiteral("settings"), QVariant::fromValue(&settings)}})
    , m_onMinimize(std::move(onMinimize))
{
    setTitle(QStringLiteral("Quillmoor"));
    if (QQuickItem *root = rootObject()) {
        connect(root, SIGNAL(minimizeRequested()), this, SLOT(minimize()));
        connect(root, SIGNAL(settingsRequested()), this, SIGNAL(settingsRequested()));
        connect(root, SIGNAL(aboutRequested()), this, SIGNAL(aboutRequested()));
    }
}

void FloatingWindow::showEvent(QShowEvent *event)
{
    GlassWindow::showEvent(event);
    if (QQuickItem *root = rootObject())
        QMetaObject::invokeMethod(root, "focusQuestionField");
}
