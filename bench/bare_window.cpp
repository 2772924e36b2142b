// The yardstick for the app's start-up: a bare Qt Quick window with the same modules (Quick, Controls in the
// Basic style), 400 x 600, frameless and transparent, reporting its first frame the same way.
#include <QGuiApplication>
#include <QQmlApplicationEngine>
#include <QQuickStyle>
#include <QQuickWindow>

#include <cstdio>

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    QQuickStyle::setStyle(QStringLiteral("Basic"));
    QQmlApplicationEngine engine;
    engine.loadData(R"(
        import QtQuick
        import QtQuick.Controls
        Window {
            width: 400; height: 600; visible: true; color: "transparent"
            flags: Qt.Tool | Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint
            Rectangle { anchors.fill: parent; radius: 16; color: "#222"; Button { anchors.centerIn: parent; text: "OK" } }
        })");
    if (engine.rootObjects().isEmpty())
        return 1;
    auto *window = qobject_cast<QQuickWindow *>(engine.rootObjects().constFirst());
    QObject::connect(
        window, &QQuickWindow::frameSwapped, &app,
        [] {
            std::fprintf(stderr, "first frame\n");
            std::fflush(stderr);
        },
        Qt::SingleShotConnection);
    return app.exec();
}
