// Workbook extraction speed and memory on a generated 200,000 × 8 sheet, against LibreOffice's headless
// CSV conversion of the same file when soffice is installed.
#include "BenchUtil.h"
#include "TestMain.h"
#include "WorkbookWriter.h"

#include "Services/XLSXHelper.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

namespace {

constexpr int Rows = 200000;
constexpr int Columns = 8;

QString writeWorkbook(const QString &path, qsizetype *sheetBytes = nullptr)
{
    QStringList strings;
    for (int i = 0; i < 1000; ++i)
        strings.append(QStringLiteral("Kunde %1").arg(i));
    QByteArray rows;
    rows.reserve(qsizetype(Rows) * Columns * 40);
    for (int r = 1; r <= Rows; ++r) {
        rows += "<row r=\"" + QByteArray::number(r) + "\">";
        for (int c = 0; c < Columns; ++c) {
            const QByteArray ref = QByteArray(1, char('A' + c)) + QByteArray::number(r);
            if (c % 2 == 0)
                rows += "<c r=\"" + ref + "\" t=\"s\"><v>" + QByteArray::number((r + c) % 1000) + "</v></c>";
            else
                rows += "<c r=\"" + ref + "\"><v>" + QByteArray::number(r * 0.25 + c) + "</v></c>";
        }
        rows += "</row>";
    }
    // The full package, so that an office suite opens it too.
    const QByteArray ns = "xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"";
    const QByteArray rel = "http://schemas.openxmlformats.org/officeDocument/2006/relationships";
    const QByteArray types =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Types "
        "xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
        "<Default Extension=\"rels\" "
        "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
        "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
        "<Override PartName=\"/xl/workbook.xml\" "
        "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet.main+xml\"/>"
        "<Override PartName=\"/xl/worksheets/sheet1.xml\" "
        "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.worksheet+xml\"/>"
        "<Override PartName=\"/xl/sharedStrings.xml\" "
        "ContentType=\"application/vnd.openxmlformats-officedocument.spreadsheetml.sharedStrings+xml\"/>"
        "</Types>";
    const QByteArray rootRels = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Relationships "
                                "xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
                                "<Relationship Id=\"rId1\" Type=\"" +
                                rel + "/officeDocument\" Target=\"xl/workbook.xml\"/></Relationships>";
    const QByteArray bookRels = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Relationships "
                                "xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">"
                                "<Relationship Id=\"rId1\" Type=\"" +
                                rel +
                                "/worksheet\" Target=\"worksheets/sheet1.xml\"/>"
                                "<Relationship Id=\"rId2\" Type=\"" +
                                rel + "/sharedStrings\" Target=\"sharedStrings.xml\"/></Relationships>";
    const QByteArray book =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><workbook " + ns + " xmlns:r=\"" + rel +
        "\"><sheets><sheet name=\"Daten\" sheetId=\"1\" r:id=\"rId1\"/></sheets></workbook>";
    QByteArray sst = WorkbookWriter::sharedStringsXml(strings);
    sst.replace("<sst>", "<sst " + ns + ">");
    const QByteArray sheet = WorkbookWriter::sheetXml(rows);
    if (sheetBytes)
        *sheetBytes = sheet.size();
    WorkbookWriter::writeZip(path, {{QStringLiteral("[Content_Types].xml"), types},
                                    {QStringLiteral("_rels/.rels"), rootRels},
                                    {QStringLiteral("xl/_rels/workbook.xml.rels"), bookRels},
                                    {QStringLiteral("xl/workbook.xml"), book},
                                    {QStringLiteral("xl/sharedStrings.xml"), sst},
                                    {QStringLiteral("xl/worksheets/sheet1.xml"), sheet}});
    return path;
}

} // namespace

int main(int argc, char *argv[])
{
    TestEnvironment::isolate();
    QGuiApplication app(argc, argv);
    if (app.arguments().size() == 3 && app.arguments().at(1) == QLatin1String("--write")) {
        writeWorkbook(app.arguments().at(2)); // the workbook alone, for profiling
        return 0;
    }
    if (app.arguments().size() == 3 && app.arguments().at(1) == QLatin1String("--extract")) {
        // Child mode: nothing but the extraction, so its peak RSS is the extraction's own.
        const auto text = XLSXHelper::extractText(app.arguments().at(2));
        std::printf("%f\n", Bench::peakRssMiB());
        return text ? 0 : 1;
    }
    QTemporaryDir dir;
    qsizetype sheetBytes = 0;
    const QString file = writeWorkbook(dir.filePath(QStringLiteral("bench.xlsx")), &sheetBytes);
    const double sheetMiB = sheetBytes / 1048576.0;
    std::printf("workbook: %d rows x %d columns, %.1f MiB on disk\n", Rows, Columns,
                QFileInfo(file).size() / 1048576.0);

    const double rssBefore = Bench::peakRssMiB();
    QElapsedTimer timer;
    timer.start();
    const double cpuBefore = Bench::threadCpuSeconds();
    const auto text = XLSXHelper::extractText(file);
    const double seconds = timer.nsecsElapsed() / 1e9;
    const double cpuSeconds = Bench::threadCpuSeconds() - cpuBefore;
    Bench::report(QStringLiteral("XLSXHelper::extractText seconds"), seconds, QStringLiteral("s"));
    Bench::report(QStringLiteral("XLSXHelper::extractText rows/s"), Rows / seconds, QStringLiteral("rows/s"));
    const double cellsPerSecond = double(Rows) * Columns / seconds;
    Bench::report(QStringLiteral("XLSXHelper::extractText cells/s"), cellsPerSecond,
                  QStringLiteral("cells/s"));
    Bench::report(QStringLiteral("cells/s: ratio to the aim of 1.1 M cells/s"), cellsPerSecond / 1.1e6,
                  QStringLiteral("x"));
    const double cellsPerCpuSecond = double(Rows) * Columns / cpuSeconds;
    Bench::report(QStringLiteral("XLSXHelper::extractText cells per CPU second"), cellsPerCpuSecond,
                  QStringLiteral("cells/s"));
    Bench::report(QStringLiteral("cells per CPU second: ratio to the aim of 1.1 M cells/s"),
                  cellsPerCpuSecond / 1.1e6, QStringLiteral("x"));
    QProcess child;
    child.start(app.applicationFilePath(), {QStringLiteral("--extract"), file});
    child.waitForFinished(-1);
    const QList<QByteArray> childLines = child.readAllStandardOutput().trimmed().split('\n');
    const double childPeak = childLines.last().toDouble();
    Bench::report(QStringLiteral("peak RSS of a process that only extracts"), childPeak,
                  QStringLiteral("MiB"));
    Bench::report(QStringLiteral("sheet XML (uncompressed)"), sheetMiB, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("ratio of that peak to the sheet XML"), childPeak / sheetMiB,
                  QStringLiteral("x"));
    Bench::report(QStringLiteral("peak RSS of this process before extraction"), rssBefore,
                  QStringLiteral("MiB"));
    Bench::report(QStringLiteral("text length"), text ? text->size() / 1048576.0 : 0,
                  QStringLiteral("Mi UTF-16 units"));

    const QString soffice = QStandardPaths::findExecutable(QStringLiteral("soffice"));
    if (soffice.isEmpty()) {
        std::printf("soffice not installed: no comparison\n");
        return 0;
    }
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    timer.restart();
    process.start(soffice, {QStringLiteral("-env:UserInstallation=file://") +
                                dir.filePath(QStringLiteral("lo-profile")),
                            QStringLiteral("--headless"), QStringLiteral("--convert-to"),
                            QStringLiteral("csv"), QStringLiteral("--outdir"), dir.path(), file});
    process.waitForFinished(-1);
    const double loSeconds = timer.nsecsElapsed() / 1e9;
    Bench::report(QStringLiteral("soffice --headless --convert-to csv seconds"), loSeconds,
                  QStringLiteral("s"));
    Bench::report(QStringLiteral("time ratio ours / soffice"), seconds / loSeconds, QStringLiteral("x"));
    return 0;
}
