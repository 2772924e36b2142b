// Chunking throughput on 50 MB of paragraph text and of table text, and the row cutter's memory against its
// input.
#include "BenchUtil.h"
#include "TestMain.h"

#include "Services/Chunker.h"

#include <QElapsedTimer>
#include <QProcess>

namespace {

constexpr qsizetype Bytes = 50 * 1000 * 1000;

QString tableText()
{
    QString table = QStringLiteral("[TABELLE: Daten]\nA\tB\tC\tD\n");
    table.reserve(Bytes + 1000);
    for (int r = 0; table.size() < Bytes; ++r)
        table += QStringLiteral("Kunde %1\tBern\t%2\t-\n").arg(r).arg(r * 3);
    return table;
}

} // namespace

int main(int argc, char *argv[])
{
    TestEnvironment::isolate();
    QGuiApplication app(argc, argv);
    if (app.arguments().size() == 2 && app.arguments().at(1) == QLatin1String("--rows")) {
        // Child mode: the table text and the row cutter alone, so the peak RSS is theirs.
        const QString table = tableText();
        const double before = Bench::currentRssMiB();
        QElapsedTimer timer;
        timer.start();
        const double cpu = Bench::threadCpuSeconds();
        const Chunker::RowChunks rows = Chunker::rowLevelChunk(table);
        const double seconds = timer.nsecsElapsed() / 1e9, cpuSeconds = Bench::threadCpuSeconds() - cpu;
        qsizetype chunkChars = 0;
        for (const QString &chunk : rows.chunks)
            chunkChars += chunk.size();
        std::printf("%f %f %f %lld %f %lld\n", seconds, before, Bench::peakRssMiB(),
                    qlonglong(rows.chunks.size()), cpuSeconds, qlonglong(chunkChars));
        return 0;
    }

    QString prose;
    prose.reserve(Bytes + 1000);
    for (int p = 0; prose.size() < Bytes; ++p) {
        for (int w = 0; w < 20 + p % 60; ++w)
            prose += QStringLiteral("Wort%1 ").arg(w);
        prose += QStringLiteral("Schluss.\n\n");
    }
    const QString table = tableText();

    // Megabytes are counted as the UTF-8 size of the text, the size of the file it came from.
    const double proseMB = prose.toUtf8().size() / 1e6;
    const double tableMB = table.toUtf8().size() / 1e6;
    const double tableHeldMiB = table.size() * 2 / 1048576.0; // the QString the chunker reads
    QElapsedTimer timer;
    timer.start();
    double cpu = Bench::threadCpuSeconds();
    const QStringList chunks = Chunker::simpleChunkText(prose, 200, 30);
    double s = timer.nsecsElapsed() / 1e9;
    cpu = Bench::threadCpuSeconds() - cpu;
    Bench::report(QStringLiteral("simpleChunkText MB/s (%1 chunks)").arg(chunks.size()), proseMB / s,
                  QStringLiteral("MB/s"));
    Bench::report(QStringLiteral("simpleChunkText MB per CPU second"), proseMB / cpu, QStringLiteral("MB/s"));

    timer.restart();
    cpu = Bench::threadCpuSeconds();
    const Chunker::ChunkPlan plan = Chunker::plan(QStringLiteral("bericht.txt"), prose);
    s = timer.nsecsElapsed() / 1e9;
    cpu = Bench::threadCpuSeconds() - cpu;
    Bench::report(QStringLiteral("plan (prefix + summary) MB/s"), proseMB / s, QStringLiteral("MB/s"));
    Bench::report(QStringLiteral("plan: ratio to the aim of 100 MB/s"), proseMB / s / 100,
                  QStringLiteral("x"));
    Bench::report(QStringLiteral("plan MB per CPU second"), proseMB / cpu, QStringLiteral("MB/s"));
    Bench::report(QStringLiteral("plan: ratio of that to the aim of 100 MB/s"), proseMB / cpu / 100,
                  QStringLiteral("x"));

    QProcess child;
    child.start(app.applicationFilePath(), {QStringLiteral("--rows")});
    child.waitForFinished(-1);
    const QList<QByteArray> figures = child.readAllStandardOutput().trimmed().split('\n').last().split(' ');
    if (figures.size() != 6) {
        std::printf("the row cutter's child process failed\n");
        return 1;
    }
    s = figures[0].toDouble();
    const double before = figures[1].toDouble(), peak = figures[2].toDouble();
    Bench::report(QStringLiteral("rowLevelChunk input"), tableMB, QStringLiteral("MB (UTF-8)"));
    Bench::report(QStringLiteral("rowLevelChunk MB/s (%1 chunks)").arg(QString::fromLatin1(figures[3])),
                  tableMB / s, QStringLiteral("MB/s"));
    Bench::report(QStringLiteral("rowLevelChunk: ratio to the aim of 100 MB/s"), tableMB / s / 100,
                  QStringLiteral("x"));
    cpu = figures[4].toDouble();
    Bench::report(QStringLiteral("rowLevelChunk MB per CPU second"), tableMB / cpu, QStringLiteral("MB/s"));
    Bench::report(QStringLiteral("rowLevelChunk: ratio of that to the aim of 100 MB/s"), tableMB / cpu / 100,
                  QStringLiteral("x"));
    Bench::report(QStringLiteral("process holding the text (%1 MiB as UTF-16), RSS before")
                      .arg(tableHeldMiB, 0, 'f', 1),
                  before, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("its peak RSS through rowLevelChunk"), peak, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("ratio of that peak to the input's UTF-8 size"),
                  peak / (tableMB * 1e6 / 1048576.0), QStringLiteral("x"));
    Bench::report(QStringLiteral("ratio of the growth (peak - before) to the input's UTF-8 size"),
                  (peak - before) / (tableMB * 1e6 / 1048576.0), QStringLiteral("x"));
    // What the result must hold whatever the cutter does: its chunk texts, two bytes a character.
    const double chunkBytes = figures[5].toDouble() * 2;
    Bench::report(QStringLiteral("the chunk texts alone as UTF-16"), chunkBytes / 1048576.0,
                  QStringLiteral("MiB"));
    Bench::report(QStringLiteral("ratio of the chunk texts to the input's UTF-8 size"),
                  chunkBytes / (tableMB * 1e6), QStringLiteral("x"));
    // A wide header over short rows: each row costs its own cells, not the header's width.
    QString wide = QStringLiteral("Spalte") + QStringLiteral("\tSpalte").repeated(20000) + QLatin1Char('\n');
    wide.reserve(10 * 1000 * 1000);
    while (wide.size() < 10 * 1000 * 1000)
        wide += QStringLiteral("Kunde\tBern\n");
    timer.restart();
    const Chunker::RowChunks wideRows = Chunker::rowLevelChunk(wide);
    s = timer.nsecsElapsed() / 1e9;
    Bench::report(QStringLiteral("rowLevelChunk under a 20,000-column header MB/s (%1 chunks)")
                      .arg(wideRows.chunks.size()),
                  wide.size() / 1e6 / s, QStringLiteral("MB/s"));
    return plan.chunks.isEmpty() ? 1 : 0;
}
