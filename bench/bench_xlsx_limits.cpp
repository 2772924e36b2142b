// What hostile and extreme workbooks cost: for each, a child process that does nothing but the extraction
// reports its time and peak memory. The workbooks are generated in the temporary folder and removed after.
//   bench_xlsx_limits            all cases
//   bench_xlsx_limits --extract FILE   (child mode)
#include "BenchUtil.h"
#include "ConsoleCapture.h"
#include "TestMain.h"
#include "WorkbookWriter.h"

#include "Services/XLSXHelper.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <functional>

namespace {

// Rows of one small number, cycling through `period` values: the longer the period, the lower the ratio.
QByteArray cyclingRows(qsizetype bytes, int period)
{
    QByteArray rows;
    rows.reserve(bytes + 64);
    for (int i = 0; rows.size() < bytes; ++i)
        rows += "<row><c><v>" + QByteArray::number(i % period) + "</v></c></row>";
    return rows;
}

// Rows of 0, 1 or 2 drawn at random: they pack about 60 to 1, within what a workbook may.
QByteArray coinRows(qsizetype bytes)
{
    QByteArray rows;
    rows.reserve(bytes + 64);
    quint32 seed = 1;
    while (rows.size() < bytes) {
        seed = seed * 1103515245u + 12345u;
        rows += "<row><c><v>" + QByteArray::number((seed >> 16) % 3) + "</v></c></row>";
    }
    return rows;
}

// One row of `bytes` of cells holding pseudo-random numbers.
QByteArray hugeRow(qsizetype bytes)
{
    QByteArray row = "<row r=\"1\">";
    row.reserve(bytes + 64);
    quint32 seed = 1;
    while (row.size() < bytes) {
        seed = seed * 1103515245u + 12345u;
        row += "<c><v>" + QByteArray::number(seed % 1000000) + "</v></c>";
    }
    return row + "</row>";
}

// A long shared string and many cells that all refer to it.
WorkbookWriter::Entries amplification(int cells)
{
    QByteArray text;
    quint32 seed = 3;
    while (text.size() < (1 << 20)) {
        seed = seed * 1103515245u + 12345u;
        text += char('a' + seed % 26);
    }
    QByteArray rows;
    for (int r = 1; r <= cells; ++r)
        rows += "<row r=\"" + QByteArray::number(r) + "\"><c r=\"A" + QByteArray::number(r) +
                "\" t=\"s\"><v>0</v></c></row>";
    return {{QStringLiteral("xl/sharedStrings.xml"), "<sst><si><t>" + text + "</t></si></sst>"},
            {QStringLiteral("xl/worksheets/sheet1.xml"), WorkbookWriter::sheetXml(rows)}};
}

struct Case {
    QString name;
    std::function<WorkbookWriter::Entries()> entries;
};

} // namespace

int main(int argc, char *argv[])
{
    TestEnvironment::isolate();
    QCoreApplication app(argc, argv);
    if (argc == 3 && QByteArray(argv[1]) == "--extract") {
        ConsoleCapture console;
        const double before = Bench::peakRssMiB();
        QElapsedTimer timer;
        timer.start();
        const auto text = XLSXHelper::extractText(QString::fromLocal8Bit(argv[2]));
        const double seconds = timer.nsecsElapsed() / 1e9;
        const double peak = Bench::peakRssMiB();
        std::fprintf(stderr, "  last line: %s\n",
                     qPrintable(console.lines().value(console.lines().size() - 1).left(160)));
        std::printf("%f %f %f %lld\n", seconds, before, peak, text ? qint64(text->size()) : qint64(-1));
        return 0;
    }

    const QList<Case> cases{
        {QStringLiteral("2 MB with a 400 MB sheet (about 200:1)"),
         [] {
             return WorkbookWriter::Entries{{QStringLiteral("xl/worksheets/sheet1.xml"),
                                             WorkbookWriter::sheetXml(cyclingRows(400 << 20, 31))}};
         }},
        {QStringLiteral("a dense sheet of 850 MB (34 million rows)"),
         [] {
             return WorkbookWriter::Entries{
                 {QStringLiteral("xl/worksheets/sheet1.xml"), WorkbookWriter::sheetXml(coinRows(850 << 20))}};
         }},
        {QStringLiteral("one row of 60 MB"),
         [] {
             return WorkbookWriter::Entries{
                 {QStringLiteral("xl/worksheets/sheet1.xml"), WorkbookWriter::sheetXml(hugeRow(60 << 20))}};
         }},
        {QStringLiteral("one 1 MB shared string in 200,000 cells"), [] { return amplification(200000); }},
    };

    QTemporaryDir dir;
    for (const Case &c : cases) {
        const QString file = dir.filePath(QStringLiteral("case.xlsx"));
        {
            const WorkbookWriter::Entries entries = c.entries();
            qint64 unpacked = 0;
            for (const auto &entry : entries)
                unpacked += entry.second.size();
            if (!WorkbookWriter::writeZip(file, entries))
                return 1;
            std::printf("%s: %.1f MiB on disk, %.1f MiB unpacked\n", qPrintable(c.name),
                        QFileInfo(file).size() / 1048576.0, unpacked / 1048576.0);
        }
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--extract"), file});
        child.waitForFinished(-1);
        const QList<QByteArray> figures = child.readAllStandardOutput().trimmed().split(' ');
        if (figures.size() != 4)
            return 1;
        Bench::report(QStringLiteral("  time"), figures[0].toDouble(), QStringLiteral("s"));
        Bench::report(QStringLiteral("  peak RSS (process)"), figures[2].toDouble(), QStringLiteral("MiB"));
        Bench::report(QStringLiteral("  peak RSS rise during extraction"),
                      figures[2].toDouble() - figures[1].toDouble(), QStringLiteral("MiB"));
        Bench::report(QStringLiteral("  text (UTF-16 units, -1: refused or empty)"), figures[3].toDouble(),
                      QString());
        QFile::remove(file);
    }
    return 0;
}
