#include <QGuiApplication>
#include <QQuickWindow>

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    QQuickWindow window;
    window.setTitle(QStringLiteral("Quillmoor"));
    window.resize(400, 600);
    window.show();
    return app.exec();
}
