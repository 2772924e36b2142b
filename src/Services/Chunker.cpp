#include "Chunker.h"

#include "Services/DebugLog.h"
#include "Services/TextExtraction.h"

namespace {

constexpr int ChunkSize = 200;
constexpr int ChunkOverlap = 30;
constexpr int SummaryWords = 20;

// Line breaks for the row cutter: LF, VT, FF, CR, NEL, LS and PS.
bool isLineBreak(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 0x0A && u <= 0x0D) || u == 0x85 || u == 0x2028 || u == 0x2029;
}

// Blanks inside a line: tab and the space separators, not line breaks.
bool isBlank(QChar c)
{
    return c == QLatin1Char('\t') || c.category() == QChar::Separator_Space;
}

QStringView trimBlanks(QStringView s)
{
    qsizetype begin = 0, end = s.size();
    while (begin < end && isBlank(s[begin]))
        ++begin;
    while (end > begin && isBlank(s[end - 1]))
        --end;
    return s.sliced(begin, end - begin);
}

QStringList splitTabs(QStringView line)
{
    QStringList cells;
    for (QStringView cell : line.split(QLatin1Char('\t')))
        cells.append(cell.toString());
    return cells;
}

QString removeAll(QString s, QLatin1String what)
{
    return s.remove(what);
}

} // namespace

QStringList Chunker::words(QStringView text, qsizetype limit)
{
    QStringList found;
    qsizetype start = -1;
    for (qsizetype i = 0; i <= text.size() && found.size() < limit; ++i) {
        // QChar::isSpace is exactly the Unicode white-space-and-newline set.
        const bool separator = i == text.size() || text[i].isSpace();
        if (separator && start >= 0) {
            found.append(text.sliced(start, i - start).toString());
            start = -1;
        } else if (!separator && start < 0) {
            start = i;
        }
    }
    return found;
}

qsizetype Chunker::wordCount(QStringView text)
{
    qsizetype count = 0;
    bool inWord = false;
    for (QChar c : text) {
        const bool separator = c.isSpace();
        if (!separator && !inWord)
            ++count;
        inWord = !separator;
    }
    return count;
}

QStringList Chunker::simpleChunkText(const QString &text, int chunkSize, int overlap)
{
    Q_UNUSED(overlap) // the carried paragraph is the overlap
    QStringList chunks;
    QList<QStringView> current;
    qsizetype currentWords = 0;
    qsizetype lastWords = 0;
    const auto flush = [&] {
        QString chunk;
        for (qsizetype i = 0; i < current.size(); ++i) {
            if (i > 0)
                chunk += QLatin1Char('\n');
            chunk += current.at(i);
        }
        chunks.append(chunk);
    };
    for (QStringView piece : QStringView(text).split(QStringLiteral("\n\n"))) {
        const QStringView paragraph = piece.trimmed();
        if (paragraph.isEmpty())
            continue;
        const qsizetype paraWords = wordCount(paragraph);
        if (currentWords + paraWords > chunkSize && !current.isEmpty()) {
            flush();
            const QStringView carried = current.last();
            current = {carried};
            currentWords = lastWords;
        }
        current.append(paragraph);
        currentWords += paraWords;
        lastWords = paraWords;
    }
    if (!current.isEmpty())
        flush();
    return chunks;
}

Chunker::RowChunks Chunker::rowLevelChunk(const QString &text)
{
    RowChunks result;
    QString tableName;
    QStringList headers;
    QStringList schemaParts;
    bool anyLine = false;

    qsizetype start = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i < text.size() && !isLineBreak(text[i]))
            continue;
        const QStringView line = trimBlanks(QStringView(text).sliced(start, i - start));
        start = i + 1;
        if (line.isEmpty())
            continue;
        anyLine = true;

        const bool opens =
            line.startsWith(QLatin1String("[TABELLE:")) || line.startsWith(QLatin1String("---"));
        const bool closes = line.endsWith(QLatin1Char(']')) || line.endsWith(QLatin1String("---"));
        if (opens && closes) {
            QString name = line.toString();
            name = removeAll(removeAll(removeAll(name, QLatin1String("[TABELLE:")), QLatin1String("]")),
                             QLatin1String("---"));
            tableName = trimBlanks(name).toString();
            headers.clear();
            continue;
        }
        if (headers.isEmpty()) {
            headers = splitTabs(line);
            schemaParts.append(QStringLiteral("Tabelle [") + tableName + QStringLiteral("] mit Spalten: ") +
                               headers.join(QStringLiteral(", ")));
            continue;
        }
        const QStringList cells = splitTabs(line);
        QStringList pairs;
        // Only the row's own cells can hold a value: a short row under a wide header costs its own length,
        // not the header's.
        for (qsizetype c = 0; c < cells.size(); ++c) {
            const QString &value = cells.at(c);
            if (value.isEmpty() || value == QLatin1String("-"))
                continue;
            const QString column =
                c < headers.size() ? headers.at(c) : QStringLiteral("Spalte %1").arg(c + 1);
            pairs.append(column + QStringLiteral(": ") + value);
        }
        if (pairs.isEmpty())
            continue;
        QString chunk = tableName.isEmpty() ? QString() : QLatin1Char('[') + tableName + QStringLiteral("] ");
        chunk += pairs.join(QStringLiteral("; "));
        result.chunks.append(chunk);
    }
    if (!anyLine)
        return result;
    result.schema = schemaParts.join(QStringLiteral("; "));
    DebugLog::log(QStringLiteral("📦 rowLevelChunk: ") + QString::number(result.chunks.size()) +
                  QStringLiteral(" chunks, schema: ") + result.schema);
    return result;
}

Chunker::ChunkPlan Chunker::plan(const QString &fileName, const QString &text)
{
    ChunkPlan plan;
    const QString extension = TextExtraction::lowerExtension(fileName);
    if (extension == QLatin1String("xlsx") || extension == QLatin1String("csv")) {
        RowChunks rows = rowLevelChunk(text);
        plan.chunks = std::move(rows.chunks);
        plan.schema = rows.schema;
        if (!plan.chunks.isEmpty())
            plan.description = *plan.schema;
        return plan;
    }
    const QString prefix =
        QLatin1Char('[') + TextExtraction::nameWithoutExtension(fileName) + QStringLiteral("] ");
    for (const QString &chunk : simpleChunkText(text, ChunkSize, ChunkOverlap))
        plan.chunks.append(prefix + chunk);
    if (!plan.chunks.isEmpty())
        plan.description = QString::number(plan.chunks.size()) + QStringLiteral(" Abschnitte. Beginn: ") +
                           words(text, SummaryWords).join(QLatin1Char(' ')) + QStringLiteral("...");
    return plan;
}
