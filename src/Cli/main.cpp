#include "Commands.h"

#include "Core/Console.h"
#include "Models/ImageData.h"
#include "Services/NetworkShutdown.h"

#include <QGuiApplication>
#include <QTextStream>

namespace {

int usage()
{
    QTextStream(stderr)
        << "usage: quillmoor-cli extract [--attachment] FILE\n"
           "       quillmoor-cli chunks FILE\n"
           "       quillmoor-cli ask [--model ID] [--prompt TEXT] [--history FILE] [--attach FILE]...\n"
           "                         [--knowledge FILE]... QUESTION\n";
    return Cli::ExitUsage;
}

} // namespace

int main(int argc, char *argv[])
{
    // Pictures are decoded through Qt's image plugins, which need a GUI application but no display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    ImageData::allowFullSizePhotos();
    // stdout carries only what the user asked for; every console and debug line goes to stderr.
    Console::setStream(stderr);

    QStringList args = app.arguments().mid(1);
    if (args.isEmpty())
        return usage();
    const QString command = args.takeFirst();
    if (command == QLatin1String("extract"))
        return Cli::extract(args);
    if (command == QLatin1String("chunks"))
        return Cli::chunks(args);
    if (command == QLatin1String("ask")) {
        const int status = Cli::ask(args);
        NetworkShutdown::closeConnections();
        return status;
    }
    return usage();
}
