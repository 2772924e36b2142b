// Two start-ups of the knowledge base with the same 100 files against the loopback test provider, in one
// run: embeddings requests made and the time until every file is ready, for a first start (empty vector
// cache) and a second one (the files unchanged).
//   bench_restart [--delay MS]   the provider's pause before each embeddings answer (default 50)
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

namespace {

constexpr int Files = 100;

// About 1,500 words of running text: eight to nine chunks, one embeddings batch per file.
QByteArray document(int index)
{
    QByteArray text;
    for (int paragraph = 0; paragraph < 60; ++paragraph) {
        text += "Abschnitt " + QByteArray::number(paragraph) + " der Akte " + QByteArray::number(index) +
                ": Die Lieferung an das Büro in Bern kommt am Montag, die Rechnung folgt per Post, "
                "und Rückfragen gehen an die Buchhaltung.\n\n";
    }
    return text;
}

struct StartUp {
    qsizetype requests = 0;
    double seconds = 0;
    qsizetype chunks = 0;
};

StartUp startUp(TestProvider &provider, const QList<QUrl> &urls)
{
    provider.clearRequests();
    ContextManager manager(std::make_shared<const InfomaniakAPI>(InfomaniakAPI::fromEnvironment()));
    QElapsedTimer timer;
    timer.start();
    for (const QUrl &url : urls)
        manager.addFile(url);
    // Ready: no file is "[wird gerade verarbeitet]" any more and every file's chunks are stored.
    QCoro::waitFor(manager.waitUntilIdle());
    StartUp result;
    result.seconds = double(timer.nsecsElapsed()) / 1e9;
    result.requests = provider.requests("/embeddings").size();
    result.chunks = manager.globalChunks().size();
    if (manager.getKnowledgeOverview().contains(QStringLiteral("[wird gerade verarbeitet]")))
        result.seconds = -1;
    return result;
}

} // namespace

int main(int argc, char *argv[])
{
    QTemporaryDir home;
    QDir(home.path()).mkpath(QStringLiteral("Desktop"));
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/.cache")).toUtf8());
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const qsizetype delayAt = args.indexOf(QStringLiteral("--delay"));
    const int delayMs = delayAt >= 0 ? args.value(delayAt + 1).toInt() : 50;
    FILE *devNull = std::fopen("/dev/null", "w");
    Console::setStream(devNull);

    QTemporaryDir dir;
    QList<QUrl> urls;
    for (int i = 0; i < Files; ++i) {
        QFile file(dir.filePath(QStringLiteral("akte-%1.txt").arg(i)));
        file.open(QIODevice::WriteOnly);
        file.write(document(i));
        urls.append(QUrl::fromLocalFile(file.fileName()));
    }

    TestProvider provider;
    provider.listen();
    provider.setDefaultDelayMs(delayMs);
    qputenv("QUILLMOOR_API_BASE_URL", provider.baseUrl().toString().toUtf8());

    const StartUp first = startUp(provider, urls);
    const StartUp second = startUp(provider, urls);
    Console::setStream(nullptr);

    Bench::report(QStringLiteral("knowledge files"), Files, QString());
    Bench::report(QStringLiteral("provider delay per embeddings answer"), delayMs, QStringLiteral("ms"));
    Bench::report(QStringLiteral("chunks (first start-up)"), double(first.chunks), QString());
    Bench::report(QStringLiteral("chunks (second start-up)"), double(second.chunks), QString());
    Bench::report(QStringLiteral("first start-up: embeddings requests"), double(first.requests), QString());
    Bench::report(QStringLiteral("first start-up: time until every file is ready"), first.seconds,
                  QStringLiteral("s"));
    Bench::report(QStringLiteral("second start-up: embeddings requests"), double(second.requests), QString());
    Bench::report(QStringLiteral("second start-up: time until every file is ready"), second.seconds,
                  QStringLiteral("s"));
    std::fclose(devNull);
    return 0;
}
