// Time from Return to the chat request leaving: with the knowledge base idle, while ten 300-page PDFs are
// being processed, and idle again with all of them in the knowledge base. The loopback provider runs on a
// thread of its own, as a remote one would, and notes when each chat request arrives.
//   bench_busy_turn [DOCUMENTS] [PAGES] [TURNS]   (default 10 300 20)
#include "BenchUtil.h"
#include "TestMain.h"
#include "TestProvider.h"

#include "AppSettings.h"
#include "Chat/ChatSession.h"
#include "Core/Console.h"
#include "Services/ContextManager.h"

#include <QEventLoop>
#include <QPainter>
#include <QPdfWriter>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>

namespace {

void writePdf(const QString &path, int pages, int seed)
{
    QPdfWriter writer(path);
    writer.setResolution(72);
    QPainter painter(&writer);
    painter.setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    for (int page = 0; page < pages; ++page) {
        if (page > 0)
            writer.newPage();
        for (int line = 0; line < 55; ++line)
            painter.drawText(QPointF(50, 40 + line * 13),
                             QStringLiteral("Band %1, Seite %2, Zeile %3: Wartung und Prüfung der Anlage im "
                                            "Werk Nord, Bericht über das Jahr %4.")
                                 .arg(seed)
                                 .arg(page + 1)
                                 .arg(line + 1)
                                 .arg(1990 + (page + line) % 30));
    }
    painter.end();
}

struct Figures {
    QList<double> ms;
    void report(const QString &name) const
    {
        QList<double> sorted = ms;
        std::sort(sorted.begin(), sorted.end());
        if (sorted.isEmpty())
            return;
        Bench::report(name + QStringLiteral(" median"), sorted.at(sorted.size() / 2), QStringLiteral("ms"));
        Bench::report(name + QStringLiteral(" 90th percentile"), sorted.at(sorted.size() * 9 / 10),
                      QStringLiteral("ms"));
        Bench::report(name + QStringLiteral(" max"), sorted.last(), QStringLiteral("ms"));
    }
};

} // namespace

int main(int argc, char *argv[])
{
    TestEnvironment::isolate();
    QGuiApplication app(argc, argv);
    const int documents = argc > 1 ? std::atoi(argv[1]) : 10;
    const int pages = argc > 2 ? std::atoi(argv[2]) : 300;
    const int turns = argc > 3 ? std::atoi(argv[3]) : 20;
    FILE *devNull = std::fopen("/dev/null", "w");
    Console::setStream(devNull);

    QElapsedTimer clock;
    clock.start();
    std::atomic<qint64> arrived{-1};
    QThread providerThread;
    providerThread.start();
    auto *provider = new TestProvider;
    provider->moveToThread(&providerThread);
    QMetaObject::invokeMethod(
        provider, [provider] { provider->listen(); }, Qt::BlockingQueuedConnection);
    QObject::connect(
        provider, &TestProvider::requestReceived, provider,
        [&](const TestProvider::Request &request) {
            if (request.path.endsWith("/chat/completions"))
                arrived = clock.nsecsElapsed();
        },
        Qt::DirectConnection);
    qputenv("QUILLMOOR_API_BASE_URL", provider->baseUrl().toString().toUtf8());

    QTemporaryDir dir;
    std::printf("writing %d documents of %d pages...\n", documents, pages);
    std::fflush(stdout);
    QList<QUrl> pdfs;
    for (int d = 0; d < documents; ++d) {
        const QString path = dir.filePath(QStringLiteral("Handbuch %1.pdf").arg(d + 1));
        writePdf(path, pages, d + 1);
        pdfs.append(QUrl::fromLocalFile(path));
    }

    AppSettings settings;
    settings.setSelectedModel(QStringLiteral("mistral3"));
    ContextManager knowledge(std::make_shared<const InfomaniakAPI>(InfomaniakAPI::fromEnvironment()));
    ChatSession session(knowledge, settings);
    const QString notes = dir.filePath(QStringLiteral("Notizen.txt"));
    QFile file(notes);
    file.open(QIODevice::WriteOnly);
    file.write("Die Anlage im Werk Nord wird jeden Montag geprüft.\n\nDie Wartung übernimmt das Team Süd.");
    file.close();
    knowledge.addFile(QUrl::fromLocalFile(notes));
    QCoro::waitFor(knowledge.waitUntilIdle());

    const auto turn = [&]() -> double {
        arrived = -1;
        QEventLoop loop;
        QObject::connect(&session, &ChatSession::turnFinished, &loop, &QEventLoop::quit);
        session.setInputText(QStringLiteral("Wann wird die Anlage im Werk Nord geprüft?"));
        const qint64 pressed = clock.nsecsElapsed();
        session.sendMessage();
        loop.exec();
        return arrived < 0 ? -1.0 : double(arrived - pressed) / 1e6;
    };
    const auto pause = [] {
        QEventLoop loop;
        QTimer::singleShot(100, &loop, &QEventLoop::quit);
        loop.exec();
    };

    Figures idle;
    for (int i = 0; i < turns; ++i) {
        idle.ms.append(turn());
        pause();
    }

    const qint64 started = clock.nsecsElapsed();
    for (const QUrl &url : pdfs)
        knowledge.addFile(url);
    Figures busy;
    while (busy.ms.size() < turns && !knowledge.isIdle()) {
        const double ms = turn();
        if (!knowledge.isIdle())
            busy.ms.append(ms);
        pause();
    }
    QCoro::waitFor(knowledge.waitUntilIdle());
    const double processing = double(clock.nsecsElapsed() - started) / 1e9;

    Figures full;
    for (int i = 0; i < turns; ++i) {
        full.ms.append(turn());
        pause();
    }

    Bench::report(QStringLiteral("knowledge chunks at the end"), double(knowledge.globalChunks().size()),
                  QString());
    Bench::report(QStringLiteral("processing the documents took"), processing, QStringLiteral("s"));
    idle.report(QStringLiteral("idle, Return to request"));
    busy.report(QStringLiteral("while processing, Return to request"));
    Bench::report(QStringLiteral("turns measured while processing"), double(busy.ms.size()), QString());
    full.report(QStringLiteral("idle with all documents, Return to request"));

    Console::setStream(nullptr);
    QMetaObject::invokeMethod(
        provider, [provider] { delete provider; }, Qt::BlockingQueuedConnection);
    providerThread.quit();
    providerThread.wait();
    std::fclose(devNull);
    return 0;
}
