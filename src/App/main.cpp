#include "AppDelegate.h"
#include "Models/ImageData.h"
#include "Window/FloatingWindow.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQuickStyle>

Q_LOGGING_CATEGORY(lcApp, "quillmoor.app", QtWarningMsg)

namespace {

// Window positions are the shell's business (mini mode, snapping), and a Wayland client may not place its
// windows, so on a Wayland session the app runs through XWayland unless the user chose a platform.
void preferXWayland()
{
    if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY") && !qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "xcb");
}

} // namespace

int main(int argc, char *argv[])
{
    preferXWayland();
    QGuiApplication app(argc, argv);
    ImageData::allowFullSizePhotos();
    QGuiApplication::setApplicationName(QStringLiteral("Quillmoor"));
    QGuiApplication::setApplicationVersion(QStringLiteral(QUILLMOOR_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("quillmoor"));
    QQuickStyle::setStyle(QStringLiteral("Basic"));

    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    // For start-up measurements (QT_LOGGING_RULES="quillmoor.app.info=true").
    QObject::connect(
        delegate.floatingWindow(), &QQuickWindow::frameSwapped, &app, [] { qCInfo(lcApp, "first frame"); },
        Qt::SingleShotConnection);
    return app.exec();
}
