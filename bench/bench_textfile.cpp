// What a very large text file costs: read as a knowledge file (the whole text), as a document attachment
// (cut at 30,000 characters) and when dropped under a picture's name. Each is measured in a child process
// that does nothing else; the file is generated in the temporary folder and removed afterwards.
//   bench_textfile [GIGABYTES]                      (default 2)
//   bench_textfile --knowledge|--attachment|--picture FILE   (child modes)
#include "BenchUtil.h"
#include "ConsoleCapture.h"
#include "TestMain.h"

#include "Models/ImageData.h"
#include "Services/TextExtraction.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

namespace {

bool writeText(const QString &path, qint64 bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    QByteArray block;
    for (int line = 0; block.size() < (8 << 20); ++line)
        block += "Zeile " + QByteArray::number(line) +
                 ": Die Lieferung für Zürich kommt am Montag, die Rechnung folgt per Post.\n";
    for (qint64 written = 0; written < bytes; written += block.size()) {
        if (file.write(block.constData(), std::min<qint64>(block.size(), bytes - written)) < 0)
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    TestEnvironment::isolate();
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 3 && args.at(1).startsWith(QLatin1String("--"))) {
        ConsoleCapture console;
        const double before = Bench::peakRssMiB();
        QElapsedTimer timer;
        timer.start();
        qint64 units = -1;
        if (args.at(1) == QLatin1String("--knowledge"))
            units = TextExtraction::forKnowledge(args.at(2)).value_or(QString()).size();
        else if (args.at(1) == QLatin1String("--attachment"))
            units = TextExtraction::forAttachment(args.at(2)).value_or(QString()).size();
        else
            units = ImageData::load(args.at(2)) ? 1 : 0;
        std::printf("%f %f %f %lld\n", timer.nsecsElapsed() / 1e9, before, Bench::peakRssMiB(), units);
        return 0;
    }

    const double gigabytes = args.size() > 1 ? args.at(1).toDouble() : 2.0;
    QTemporaryDir dir;
    const QString text = dir.filePath(QStringLiteral("gross.txt"));
    if (!writeText(text, qint64(gigabytes * (1 << 30))))
        return 1;
    const QString picture = dir.filePath(QStringLiteral("gross.webp"));
    QFile::link(text, picture);
    std::printf("text file: %.2f GiB\n", QFileInfo(text).size() / double(1 << 30));

    const QList<std::pair<QString, QString>> runs{{QStringLiteral("--knowledge"), text},
                                                  {QStringLiteral("--attachment"), text},
                                                  {QStringLiteral("--picture"), picture}};
    for (const auto &[mode, file] : runs) {
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(QCoreApplication::applicationFilePath(), {mode, file});
        child.waitForFinished(-1);
        const QList<QByteArray> figures = child.readAllStandardOutput().trimmed().split(' ');
        if (figures.size() != 4)
            return 1;
        std::printf("%s\n", qPrintable(mode.mid(2)));
        Bench::report(QStringLiteral("  time"), figures[0].toDouble(), QStringLiteral("s"));
        Bench::report(QStringLiteral("  peak RSS (process)"), figures[2].toDouble(), QStringLiteral("MiB"));
        Bench::report(QStringLiteral("  peak RSS rise"), figures[2].toDouble() - figures[1].toDouble(),
                      QStringLiteral("MiB"));
        Bench::report(mode == QLatin1String("--picture") ? QStringLiteral("  taken as a picture")
                                                         : QStringLiteral("  text (UTF-16 units)"),
                      figures[3].toDouble(), QString());
    }
    return 0;
}
