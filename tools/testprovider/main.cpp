// A loopback stand-in for the provider, so the app and the command-line companion can be tried without an
// account:  quillmoor-testprovider [--port N] [--delay MS] [--models ID,ID,...]
// then start them with QUILLMOOR_API_BASE_URL=http://127.0.0.1:N/v1.
#include "TestProvider.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Loopback test provider with an OpenAI-compatible API"));
    parser.addHelpOption();
    QCommandLineOption portOption(QStringLiteral("port"), QStringLiteral("Port to listen on (default 8080)."),
                                  QStringLiteral("port"), QStringLiteral("8080"));
    QCommandLineOption delayOption(QStringLiteral("delay"),
                                   QStringLiteral("Pause between answer pieces in ms."), QStringLiteral("ms"),
                                   QStringLiteral("40"));
    QCommandLineOption modelsOption(
        QStringLiteral("models"),
        QStringLiteral("Models listed at /v1/models, separated by commas; empty for no list (404)."),
        QStringLiteral("ids"), TestProvider::DefaultModels.join(QLatin1Char(',')));
    parser.addOption(portOption);
    parser.addOption(delayOption);
    parser.addOption(modelsOption);
    parser.process(app);

    TestProvider provider;
    provider.setDefaultDelayMs(parser.value(delayOption).toInt());
    provider.setModelList(parser.value(modelsOption).split(QLatin1Char(','), Qt::SkipEmptyParts));
    if (!provider.listen(QHostAddress::LocalHost, quint16(parser.value(portOption).toUInt()))) {
        QTextStream(stderr) << "Cannot listen on port " << parser.value(portOption) << "\n";
        return 1;
    }
    QTextStream(stdout) << "Test provider listening. Use QUILLMOOR_API_BASE_URL="
                        << provider.baseUrl().toString() << "\n";
    QObject::connect(&provider, &TestProvider::requestReceived, [](const TestProvider::Request &r) {
        QTextStream(stdout) << r.method << ' ' << r.path << " (" << r.body.size() << " bytes)\n";
    });
    return app.exec();
}
