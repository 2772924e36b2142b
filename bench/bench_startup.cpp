// Start-up of the app against a bare Qt Quick window: time from process start to the first frame of the
// window, the CPU time all its threads spent up to then (steadier than the wall time on a busy machine), and
// resident memory once idle. Runs each program several times, in turn, on the current display.
//   bench_startup build/src/App/quillmoor build/src/App/bench-bare-window [RUNS]
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>

namespace {

struct Sample {
    double firstFrameMs = -1;
    double cpuMs = -1;
    double idleRssMiB = -1;
};

// Time on a CPU of every thread of the process so far, from the scheduler's nanosecond counts.
double cpuMs(qint64 pid)
{
    const QString tasks = QStringLiteral("/proc/%1/task").arg(pid);
    double total = 0;
    for (const QString &task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile stat(tasks + QLatin1Char('/') + task + QStringLiteral("/schedstat"));
        if (stat.open(QIODevice::ReadOnly))
            total += stat.readAll().split(' ').first().toDouble() / 1e6;
    }
    return total;
}

double rssMiB(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024.0;
    }
    return -1;
}

Sample measure(const QString &program, const QString &home)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    env.insert(QStringLiteral("QT_LOGGING_RULES"), QStringLiteral("quillmoor.app.info=true"));
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardOutputFile(QProcess::nullDevice());
    Sample sample;
    QElapsedTimer clock;
    clock.start();
    process.start(program, {});
    if (!process.waitForStarted(10000))
        return sample;
    QByteArray seen;
    while (clock.elapsed() < 20000) {
        process.waitForReadyRead(20);
        seen += process.readAllStandardError();
        if (seen.contains("first frame")) {
            sample.firstFrameMs = double(clock.nsecsElapsed()) / 1e6;
            sample.cpuMs = cpuMs(process.processId());
            break;
        }
    }
    QThread::msleep(3000); // idle: start-up work, the first layout and caches have settled
    sample.idleRssMiB = rssMiB(process.processId());
    process.kill();
    process.waitForFinished(5000);
    return sample;
}

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? -1 : values[values.size() / 2];
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3) {
        std::fprintf(stderr, "usage: bench_startup APP BARE [RUNS]\n");
        return 64;
    }
    const int runs = args.size() > 3 ? args[3].toInt() : 5;
    QTemporaryDir home;
    QList<double> frames[2], cpu[2], rss[2];
    for (int run = 0; run < runs; ++run) {
        for (int which = 0; which < 2; ++which) {
            const Sample s = measure(args[1 + which], home.path());
            frames[which].append(s.firstFrameMs);
            cpu[which].append(s.cpuMs);
            rss[which].append(s.idleRssMiB);
        }
    }
    const double appFrame = median(frames[0]), bareFrame = median(frames[1]);
    const double appCpu = median(cpu[0]), bareCpu = median(cpu[1]);
    const double appRss = median(rss[0]), bareRss = median(rss[1]);
    std::printf("runs: %d (medians)\n", runs);
    std::printf("first frame: app %.0f ms, bare %.0f ms, ratio %.2f\n", appFrame, bareFrame,
                appFrame / bareFrame);
    std::printf("CPU to it:   app %.0f ms, bare %.0f ms, ratio %.2f\n", appCpu, bareCpu, appCpu / bareCpu);
    std::printf("idle RSS:    app %.1f MiB, bare %.1f MiB, ratio %.2f\n", appRss, bareRss, appRss / bareRss);
    return 0;
}
