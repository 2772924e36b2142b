#include "AppSettings.h"
#include "AttachmentImageProvider.h"
#include "Chat/ChatSession.h"
#include "IconImageProvider.h"
#include "Services/ContextManager.h"
#include "Services/InfomaniakAPI.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQmlApplicationEngine>
#include <QQmlExtensionPlugin>
#include <QQuickStyle>
#include <QQuickWindow>

#include <memory>

Q_IMPORT_QML_PLUGIN(QuillmoorPlugin)

Q_LOGGING_CATEGORY(lcApp, "quillmoor.app")

namespace {

// Receives the logo's request; mini mode arrives with the window shell, until then it is only logged.
class MiniModeSwitch : public QObject {
    Q_OBJECT
public slots:
    void minimize() { qCInfo(lcApp) << "mini mode requested"; }
};

} // namespace

int main(int argc, char *argv[]) {
    QGuiApplication app(argc, argv);
    QGuiApplication::setApplicationName(QStringLiteral("Quillmoor"));
    QQuickStyle::setStyle(QStringLiteral("Basic"));

    auto api = std::make_shared<const InfomaniakAPI>(InfomaniakAPI::fromEnvironment());
    AppSettings settings;
    ContextManager contextManager(api);
    ChatSession session(contextManager, settings);

    QQmlApplicationEngine engine;
    engine.addImportPath(QStringLiteral("qrc:/qt/qml"));
    engine.addImageProvider(AttachmentImageProvider::Name, new AttachmentImageProvider(&session));
    engine.addImageProvider(IconImageProvider::Name, new IconImageProvider);
    engine.setInitialProperties({{QStringLiteral("session"), QVariant::fromValue(&session)},
                                 {QStringLiteral("settings"), QVariant::fromValue(&settings)}});
    engine.load(QUrl(QStringLiteral("qrc:/qt/qml/Quillmoor/Main.qml")));
    if (engine.rootObjects().isEmpty())
        return 1;

    MiniModeSwitch miniMode;
    QObject::connect(engine.rootObjects().constFirst(), SIGNAL(minimizeRequested()), &miniMode,
                     SLOT(minimize()));
    return app.exec();
}

#include "main.moc"
