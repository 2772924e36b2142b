#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// The two cutters of the knowledge base and the choice between them by file type.
namespace Chunker {

struct RowChunks {
    QStringList chunks;
    QString schema;
};

// What a processing run embeds for one file, and the file's description in the knowledge overview.
struct ChunkPlan {
    QStringList chunks;            // prefixes included
    std::optional<QString> schema; // tables only
    QString description;           // the schema, or the "Abschnitte" summary (empty when there are no chunks)
};

// Groups whole paragraphs into chunks of about `chunkSize` words, carrying the last paragraph over.
QStringList simpleChunkText(const QString &text, int chunkSize, int overlap);
// One chunk per table row as "column: value" pairs, and the schema of every table. Logs one line.
RowChunks rowLevelChunk(const QString &text);
// xlsx/csv take the row cutter; everything else the paragraph cutter with the "[name] " prefix.
ChunkPlan plan(const QString &fileName, const QString &text);

// The first `limit` words of `text`, in order: the runs between Unicode white space and line breaks.
QStringList words(QStringView text, qsizetype limit);

} // namespace Chunker
