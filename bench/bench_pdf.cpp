// PDF extraction time on a generated 300-page document, against pdftotext on the same file.
#include "BenchUtil.h"
#include "TestMain.h"

#include "Services/PDFKitHelper.h"

#include <QElapsedTimer>
#include <QPainter>
#include <QPdfWriter>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <functional>

namespace {

constexpr int Pages = 300;

void writePdf(const QString &path)
{
    QPdfWriter writer(path);
    writer.setResolution(72);
    QPainter painter(&writer);
    painter.setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    for (int page = 0; page < Pages; ++page) {
        if (page > 0)
            writer.newPage();
        for (int line = 0; line < 55; ++line)
            painter.drawText(
                QPointF(50, 40 + line * 13),
                QStringLiteral(
                    "Seite %1, Zeile %2: Umsatz und Ertrag der Abteilung Nord, Bericht über das Jahr %3.")
                    .arg(page + 1)
                    .arg(line + 1)
                    .arg(2000 + line));
    }
    painter.end();
}

double timeOf(const std::function<void()> &work, int repeats)
{
    double best = 1e9;
    for (int i = 0; i < repeats; ++i) {
        QElapsedTimer timer;
        timer.start();
        work();
        best = std::min(best, timer.nsecsElapsed() / 1e9);
    }
    return best;
}

} // namespace

int main(int argc, char *argv[])
{
    TestEnvironment::isolate();
    QGuiApplication app(argc, argv);
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("bench.pdf"));
    writePdf(file);
    std::printf("document: %d pages, %.1f MiB\n", Pages, QFileInfo(file).size() / 1048576.0);

    qsizetype length = 0;
    const double ours =
        timeOf([&] { length = PDFKitHelper::extractText(file).value_or(QString()).size(); }, 3);
    Bench::report(QStringLiteral("PDFKitHelper::extractText seconds (best of 3, %1 units)").arg(length), ours,
                  QStringLiteral("s"));

    const QString pdftotext = QStandardPaths::findExecutable(QStringLiteral("pdftotext"));
    if (pdftotext.isEmpty()) {
        std::printf("pdftotext not installed: no comparison\n");
        return 0;
    }
    // Our page text is in reading order, so the default mode is the like-for-like run; -layout is shown too.
    for (const QStringList &mode : {QStringList{}, QStringList{QStringLiteral("-layout")}}) {
        const double theirs = timeOf(
            [&] {
                QProcess process;
                process.start(pdftotext, mode + QStringList{file, dir.filePath(QStringLiteral("out.txt"))});
                process.waitForFinished(-1);
            },
            3);
        const QString name = QStringLiteral("pdftotext ") + mode.join(QLatin1Char(' '));
        Bench::report(name + QStringLiteral(" seconds (best of 3)"), theirs, QStringLiteral("s"));
        Bench::report(QStringLiteral("time ratio ours / ") + name, ours / theirs, QStringLiteral("x"));
    }
    return 0;
}
