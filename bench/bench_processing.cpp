// Processing 1,000 small text files against the loopback test provider: files per second and peak memory.
#include "BenchUtil.h"
#include "Core/Console.h"
#include "Services/ContextManager.h"
#include "TestProvider.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <qcoro/qcorotask.h>

#include <cstdio>

int main(int argc, char *argv[])
{
    QTemporaryDir home;
    QDir(home.path()).mkpath(QStringLiteral("Desktop"));
    qputenv("HOME", home.path().toUtf8());
    QCoreApplication app(argc, argv);
    FILE *devNull = std::fopen("/dev/null", "w");
    Console::setStream(devNull); // the per-file log lines would dominate the timing

    constexpr int Files = 1000;
    QTemporaryDir dir;
    QList<QUrl> urls;
    for (int i = 0; i < Files; ++i) {
        const QString path = dir.filePath(QStringLiteral("notiz-%1.txt").arg(i));
        QFile file(path);
        file.open(QIODevice::WriteOnly);
        file.write("Notiz " + QByteArray::number(i) +
                   ": Die Lieferung kommt am Montag.\n\nRechnung folgt per Post.\n\n" +
                   "Ansprechpartner ist das Büro in Bern.");
        urls.append(QUrl::fromLocalFile(path));
    }

    TestProvider provider;
    provider.listen();
    qputenv("QUILLMOOR_API_BASE_URL", provider.baseUrl().toString().toUtf8());
    ContextManager manager(std::make_shared<const InfomaniakAPI>(InfomaniakAPI::fromEnvironment()));

    const double rssBefore = Bench::currentRssMiB();
    QElapsedTimer timer;
    timer.start();
    for (const QUrl &url : urls)
        manager.addFile(url);
    QCoro::waitFor(manager.waitUntilIdle());
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    Console::setStream(nullptr);

    Bench::report(QStringLiteral("files processed"), double(manager.trackedFiles().size()), QString());
    Bench::report(QStringLiteral("global chunks"), double(manager.globalChunks().size()), QString());
    Bench::report(QStringLiteral("wall time"), seconds, QStringLiteral("s"));
    Bench::report(QStringLiteral("throughput"), Files / seconds, QStringLiteral("files/s"));
    Bench::report(QStringLiteral("RSS before adding"), rssBefore, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("peak RSS"), Bench::peakRssMiB(), QStringLiteral("MiB"));
    std::fclose(devNull);
    return 0;
}
