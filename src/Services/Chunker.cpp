#include "Chunker.h"

#include "Services/DebugLog.h"
#include "Services/TextExtraction.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace {

constexpr int ChunkSize = 200;
constexpr int SummaryWords = 20;

// Line breaks for the row cutter: LF, VT, FF, CR, NEL, LS and PS.
bool isLineBreak(char16_t u)
{
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

// The texts of many small chunks written one after another into shared blocks, each chunk a QString that
// points into its block and holds a reference to it. A table of a million rows makes a million chunks: one
// allocation each would cost a header, the allocator's overhead and its time per row. Each chunk keeps its
// terminating null, as every QString's text does; a chunk that is changed later detaches from the block, or
// (when it is the block's last user) grows into space that nobody else reads any more.
class ChunkBlocks {
public:
    // Room for `size` characters; write them, then take().
    QChar *reserve(qsizetype size)
    {
        if (!m_block.d_ptr() || m_used + size + 1 > m_block.constAllocatedCapacity()) {
            m_blockChars = std::min(m_blockChars * 2, MaxBlockChars);
            auto [header, data] = Data::allocate(std::max(m_blockChars, size + 1));
            Q_CHECK_PTR(data);
            m_block = QArrayDataPointer<char16_t>(header, data, 0);
            m_used = 0;
        }
        return reinterpret_cast<QChar *>(m_block.data() + m_used);
    }
    QString take(qsizetype size)
    {
        char16_t *text = m_block.data() + m_used;
        text[size] = u'\0';
        m_used += size + 1;
        m_block.d_ptr()->ref();
        return QString(QStringPrivate(m_block.d_ptr(), text, size));
    }

private:
    using Data = QTypedArrayData<char16_t>;
    // Blocks grow from a few KiB, so a small file's chunks do not keep a large block alive.
    static constexpr qsizetype MaxBlockChars = qsizetype(64) << 10;
    QArrayDataPointer<char16_t> m_block;
    qsizetype m_used = 0;
    qsizetype m_blockChars = 1024;
};

// The row cutter's state from line to line.
struct RowCutter {
    QString tableName;
    QString prefix; // "[name] " of the current table
    QStringList headers;
    QStringList spareNames; // "Spalte n" for the columns beyond the headers, made once each
    QStringList schemaParts;
    QList<QStringView> cells;
    ChunkBlocks blocks;

    QStringView columnName(qsizetype column)
    {
        if (column < headers.size())
            return headers.at(column);
        while (spareNames.size() <= column)
            spareNames.append(QStringLiteral("Spalte ") + QString::number(spareNames.size() + 1));
        return spareNames.at(column);
    }

    // One row as "column: value" pairs behind the table's "[name] " prefix, or nothing when every cell is
    // empty or "-". `tabs` are the places of the line's tabs in `text`; the text is measured before it is
    // written, so the chunk is written once, in place.
    std::optional<QString> rowChunk(QStringView text, qsizetype begin, qsizetype end,
                                    const QList<qsizetype> &tabs)
    {
        cells.clear();
        qsizetype start = begin;
        for (const qsizetype tab : tabs) {
            if (tab < begin || tab >= end)
                continue; // among the blanks trimmed off the line
            cells.append(text.sliced(start, tab - start));
            start = tab + 1;
        }
        cells.append(text.sliced(start, end - start));

        const auto skipped = [](QStringView value) {
            return value.isEmpty() || (value.size() == 1 && value.front() == QLatin1Char('-'));
        };
        constexpr qsizetype SeparatorSize = 2; // "; " between pairs and ": " within one
        qsizetype size = prefix.size();
        qsizetype pairs = 0;
        for (qsizetype column = 0; column < cells.size(); ++column) {
            if (skipped(cells.at(column)))
                continue;
            size += (pairs > 0 ? SeparatorSize : 0) + columnName(column).size() + SeparatorSize +
                    cells.at(column).size();
            ++pairs;
        }
        if (pairs == 0)
            return std::nullopt;
        QChar *out = blocks.reserve(size);
        const auto put = [&out](QStringView part) {
            if (part.isEmpty()) // an empty view may have no storage at all, which memcpy must not be given
                return;
            std::memcpy(static_cast<void *>(out), part.data(), size_t(part.size()) * sizeof(QChar));
            out += part.size();
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
            put(columnName(column));
            putSeparator(u':');
            put(cells.at(column));
        }
        return blocks.take(size);
    }

    void line(QStringView text, qsizetype begin, qsizetype end, const QList<qsizetype> &tabs,
              QStringList &chunks)
    {
        const QStringView line = text.sliced(begin, end - begin);
        const QChar lead = line.front();
        if ((lead == QLatin1Char('[') || lead == QLatin1Char('-')) &&
            (line.startsWith(QLatin1String("[TABELLE:")) || line.startsWith(QLatin1String("---"))) &&
            (line.endsWith(QLatin1Char(']')) || line.endsWith(QLatin1String("---")))) {
            QString name = line.toString();
            name = removeAll(removeAll(removeAll(name, QLatin1String("[TABELLE:")), QLatin1String("]")),
                             QLatin1String("---"));
            tableName = trimBlanks(name).toString();
            prefix = tableName.isEmpty() ? QString() : QLatin1Char('[') + tableName + QStringLiteral("] ");
            headers.clear();
            return;
        }
        if (headers.isEmpty()) {
            headers = splitTabs(line);
            schemaParts.append(QStringLiteral("Tabelle [") + tableName + QStringLiteral("] mit Spalten: ") +
                               headers.join(QStringLiteral(", ")));
            return;
        }
        if (std::optional<QString> chunk = rowChunk(text, begin, end, tabs))
            chunks.append(std::move(*chunk));
    }
};

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
    // Paragraphs end at "\n\n"; their words are counted on the way to that end, so each character is
    // looked at once. Trimming takes only white space off, which holds no words.
    const char16_t *chars = reinterpret_cast<const char16_t *>(text.data());
    const qsizetype length = text.size();
    qsizetype start = 0;
    qsizetype paraWords = 0;
    bool inWord = false;
    for (qsizetype i = 0;; ++i) {
        if (i < length && !(chars[i] == u'\n' && i + 1 < length && chars[i + 1] == u'\n')) {
            // Words are the runs between Unicode white space and line breaks: QChar::isSpace is exactly
            // that set.
            const bool space = QChar::isSpace(chars[i]);
            paraWords += !space && !inWord;
            inWord = !space;
            continue;
        }
        const QStringView paragraph = text.sliced(start, i - start).trimmed();
        start = i + 2;
        const qsizetype words = paraWords;
        paraWords = 0;
        inWord = false;
        if (!paragraph.isEmpty()) {
            if (currentWords + words > chunkSize && !current.isEmpty()) {
                flush();
                const QStringView carried = current.last();
                current.clear();
                current.append(carried);
                currentWords = lastWords;
            }
            current.append(paragraph);
            currentWords += words;
            lastWords = words;
        }
        if (i >= length)
            break;
        ++i; // past the second line break
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
    RowCutter cutter;
    QList<qsizetype> tabs; // of the line being read
    bool anyLine = false;

    // One pass: each character is looked at once, for a line break or a tab, before the line is cut.
    const char16_t *chars = reinterpret_cast<const char16_t *>(text.constData());
    const qsizetype length = text.size();
    qsizetype start = 0;
    for (qsizetype i = 0; i <= length; ++i) {
        if (i < length) {
            const char16_t u = chars[i];
            if (u > 0x0D && u < 0x85)
                continue; // neither a line break nor a tab: most characters of a table
            if (u == u'\t') {
                tabs.append(i);
                continue;
            }
            if (!isLineBreak(u))
                continue;
        }
        const QStringView line = trimBlanks(QStringView(text).sliced(start, i - start));
        start = i + 1;
        if (!line.isEmpty()) {
            anyLine = true;
            const qsizetype begin = line.data() - text.constData();
            cutter.line(text, begin, begin + line.size(), tabs, result.chunks);
        }
        tabs.clear();
    }
    if (!anyLine)
        return result;
    result.schema = cutter.schemaParts.join(QStringLiteral("; "));
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
