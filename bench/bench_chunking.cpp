// Chunking throughput on 50 MB of paragraph text and of table text.
#include "BenchUtil.h"
#include "TestMain.h"

#include "Services/Chunker.h"

#include <QElapsedTimer>

int main(int argc, char *argv[])
{
    TestEnvironment::isolate();
    QGuiApplication app(argc, argv);
    constexpr qsizetype Bytes = 50 * 1000 * 1000;

    QString prose;
    prose.reserve(Bytes + 1000);
    for (int p = 0; prose.size() < Bytes; ++p) {
        for (int w = 0; w < 20 + p % 60; ++w)
            prose += QStringLiteral("Wort%1 ").arg(w);
        prose += QStringLiteral("Schluss.\n\n");
    }
    QString table = QStringLiteral("[TABELLE: Daten]\nA\tB\tC\tD\n");
    table.reserve(Bytes + 1000);
    for (int r = 0; table.size() < Bytes; ++r)
        table += QStringLiteral("Kunde %1\tBern\t%2\t-\n").arg(r).arg(r * 3);

    QElapsedTimer timer;
    timer.start();
    const QStringList chunks = Chunker::simpleChunkText(prose, 200, 30);
    double s = timer.nsecsElapsed() / 1e9;
    Bench::report(QStringLiteral("simpleChunkText MB/s (%1 chunks)").arg(chunks.size()),
                  prose.size() / 1e6 / s, QStringLiteral("MB/s"));

    timer.restart();
    const Chunker::ChunkPlan plan = Chunker::plan(QStringLiteral("bericht.txt"), prose);
    s = timer.nsecsElapsed() / 1e9;
    Bench::report(QStringLiteral("plan (prefix + summary) MB/s"), prose.size() / 1e6 / s,
                  QStringLiteral("MB/s"));

    timer.restart();
    const Chunker::RowChunks rows = Chunker::rowLevelChunk(table);
    s = timer.nsecsElapsed() / 1e9;
    Bench::report(QStringLiteral("rowLevelChunk MB/s (%1 chunks)").arg(rows.chunks.size()),
                  table.size() / 1e6 / s, QStringLiteral("MB/s"));
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
    Bench::report(QStringLiteral("peak RSS"), Bench::peakRssMiB(), QStringLiteral("MiB"));
    return plan.chunks.isEmpty() ? 1 : 0;
}
