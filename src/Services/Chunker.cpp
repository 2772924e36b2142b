#include "Chunker.h"

#include "Services/DebugLog.h"
#include "Services/TextExtraction.h"

#include <cstring>

namespace {

constexpr int ChunkSize = 200;
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
    const char16_t u = c.unicode();
    if (u < 0x80)
        return u == u' ' || u == u'\t';
    return c.category() == QChar::Separator_Space;
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

// One row as "column: value" pairs behind the table's "[name] " prefix, or nothing when every cell is empty
// or "-". The cells are found once and the text is measured before it is written, so each chunk is one
// allocation; `cells` is the caller's, kept from row to row.
QString rowChunk(QStringView prefix, const QStringList &headers, QStringView line, QList<QStringView> &cells)
{
    cells.clear();
    for (qsizetype start = 0;;) {
        const qsizetype tab = line.indexOf(QLatin1Char('\t'), start);
        cells.append(line.sliced(start, (tab < 0 ? line.size() : tab) - start));
        if (tab < 0)
            break;
        start = tab + 1;
    }
    const auto skipped = [](QStringView value) {
        return value.isEmpty() || (value.size() == 1 && value.front() == QLatin1Char('-'));
    };
    const auto spareName = [](qsizetype column) {
        return QStringLiteral("Spalte ") + QString::number(column + 1);
    };
    constexpr qsizetype SeparatorSize = 2; // "; " between pairs and ": " within one
    qsizetype size = prefix.size();
    qsizetype pairs = 0;
    for (qsizetype column = 0; column < cells.size(); ++column) {
        if (skipped(cells.at(column)))
            continue;
        const qsizetype name = column < headers.size() ? headers.at(column).size() : spareName(column).size();
        size += (pairs > 0 ? SeparatorSize : 0) + name + SeparatorSize + cells.at(column).size();
        ++pairs;
    }
    if (pairs == 0)
        return {};
    QString chunk(size, Qt::Uninitialized);
    QChar *out = chunk.data();
    const auto put = [&out](QStringView text) {
        if (text.isEmpty()) // an empty view may have no storage at all, which memcpy must not be given
            return;
        std::memcpy(static_cast<void *>(out), text.data(), size_t(text.size()) * sizeof(QChar));
        out += text.size();
    };
    const auto putSeparator = [&out](char16_t first) {
        *out++ = QChar(first);
        *out++ = QLatin1Char(' ');
    };
    put(prefix);
    bool first = true;
    for (qsizetype column = 0; column < cells.size(); ++column) {
        if (skipped(cells.at(column)))
            continue;
        if (!first)
            putSeparator(u';');
        first = false;
        if (column < headers.size())
            put(headers.at(column));
        else
            put(spareName(column));
        putSeparator(u':');
        put(cells.at(column));
    }
    return chunk;
}

// Appends the paragraph groups of `text` to `chunks`, each behind `prefix`, in one pass over the text.
void appendParagraphChunks(QStringView text, qsizetype chunkSize, QStringView prefix, QStringList &chunks)
{
    QList<QStringView> current;
    qsizetype currentWords = 0;
    qsizetype lastWords = 0;
    const auto flush = [&] {
        qsizetype size = prefix.size() + current.size() - 1;
        for (const QStringView paragraph : current)
            size += paragraph.size();
        QString chunk;
        chunk.reserve(size);
        chunk += prefix;
        for (qsizetype i = 0; i < current.size(); ++i) {
            if (i > 0)
                chunk += QLatin1Char('\n');
            chunk += current.at(i);
        }
        chunks.append(std::move(chunk));
    };
    const QStringView separator(u"\n\n");
    for (qsizetype start = 0; start <= text.size();) {
        qsizetype end = text.indexOf(separator, start);
        if (end < 0)
            end = text.size();
        const QStringView paragraph = text.sliced(start, end - start).trimmed();
        start = end + separator.size();
        if (paragraph.isEmpty())
            continue;
        const qsizetype paraWords = Chunker::wordCount(paragraph);
        if (currentWords + paraWords > chunkSize && !current.isEmpty()) {
            flush();
            const QStringView carried = current.last();
            current.clear();
            current.append(carried);
            currentWords = lastWords;
        }
        current.append(paragraph);
        currentWords += paraWords;
        lastWords = paraWords;
    }
    if (!current.isEmpty())
        flush();
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
    appendParagraphChunks(text, chunkSize, {}, chunks);
    return chunks;
}

Chunker::RowChunks Chunker::rowLevelChunk(const QString &text)
{
    RowChunks result;
    QString tableName;
    QString prefix; // "[name] " of the current table
    QStringList headers;
    QList<QStringView> cells;
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
            prefix = tableName.isEmpty() ? QString() : QLatin1Char('[') + tableName + QStringLiteral("] ");
            headers.clear();
            continue;
        }
        if (headers.isEmpty()) {
            headers = splitTabs(line);
            schemaParts.append(QStringLiteral("Tabelle [") + tableName + QStringLiteral("] mit Spalten: ") +
                               headers.join(QStringLiteral(", ")));
            continue;
        }
        QString chunk = rowChunk(prefix, headers, line, cells);
        if (!chunk.isEmpty())
            result.chunks.append(std::move(chunk));
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
    appendParagraphChunks(text, ChunkSize, prefix, plan.chunks);
    if (!plan.chunks.isEmpty())
        plan.description = QString::number(plan.chunks.size()) + QStringLiteral(" Abschnitte. Beginn: ") +
                           words(text, SummaryWords).join(QLatin1Char(' ')) + QStringLiteral("...");
    return plan;
}
