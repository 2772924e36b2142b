#include "XLSXHelper.h"

#include "Core/IcuRegex.h"
#include "Core/SecurityScope.h"
#include "Services/DebugLog.h"
#include "Services/WorkbookArchive.h"
#include "Services/WorkbookPatterns.h"

#include <QLocale>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <locale.h>
#include <memory>

#include <unicode/coll.h>

namespace {

// The patterns of the shared strings and the sheet names, in ICU syntax and run by ICU: without the dot-all
// option a dot stops at every line terminator. Rows and cells: WorkbookPatterns.
const QString SharedStringPattern = QStringLiteral("<t[^>]*>(.*?)</t>");
const QString SheetNamePattern = QStringLiteral("<sheet [^>]*name=\"([^\"]+)\"");

// Characters inflated per step while a part is searched.
constexpr qsizetype StepChars = qsizetype(256) << 10;
// Shared strings and the result together: a workbook's text beyond this (256 MiB of UTF-16) is refused
// rather than let a few megabytes of references to one long shared string fill the memory.
constexpr qsizetype MaxTextChars = qsizetype(128) << 20;

QString errorPrefix()
{
    return QStringLiteral("❌ Error extracting XLSX: ");
}

// A shared-string index: ASCII decimal digits only; anything else (other scripts' digits, overflow)
// is not an index.
std::optional<qsizetype> parseIndex(QStringView digits)
{
    qsizetype value = 0;
    for (QChar c : digits) {
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return std::nullopt;
        if (value > (std::numeric_limits<qsizetype>::max() - 9) / 10)
            return std::nullopt;
        value = value * 10 + (c.unicode() - u'0');
    }
    return value;
}

// strtod semantics ("1." and ".5" parse, "1.2.3" does not, overflow gives infinity) without the
// process locale's decimal comma getting in the way.
std::optional<double> parseNumber(QStringView text)
{
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    if (text.isEmpty())
        return std::nullopt;
    // A number cell's digits fit on the stack; only a freak one costs an allocation.
    char stack[64];
    QByteArray heap;
    char *ascii = stack;
    if (text.size() >= qsizetype(sizeof stack)) {
        heap.resize(text.size() + 1);
        ascii = heap.data();
    }
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        ascii[i] = c < 0x100 ? char(c) : '?'; // as a Latin-1 conversion would
    }
    ascii[text.size()] = '\0';
    char *end = nullptr;
    const double value = strtod_l(ascii, &end, cLocale);
    if (end != ascii + text.size())
        return std::nullopt;
    return value;
}

// A number that "%g" prints back as it stands: plain digits with at most six significant ones, no leading
// zero, a fraction without trailing zeros and not below 0.0001. Most number cells of a sheet are such, and
// they are taken as they are instead of through a double and back.
bool printsAsItself(QStringView text)
{
    const qsizetype length = text.size();
    qsizetype dot = -1;
    for (qsizetype i = 0; i < length; ++i) {
        const QChar c = text[i];
        if (c == QLatin1Char('.')) {
            if (dot >= 0)
                return false;
            dot = i;
        } else if (c < QLatin1Char('0') || c > QLatin1Char('9')) {
            return false;
        }
    }
    const qsizetype whole = dot < 0 ? length : dot;
    if (whole == 0 || (whole > 1 && text[0] == QLatin1Char('0')))
        return false; // ".5" prints as 0.5, "01" as 1
    if (dot >= 0 && (dot == length - 1 || text[length - 1] == QLatin1Char('0')))
        return false; // "1." prints as 1, "1.50" as 1.5
    if (dot < 0 || text[0] != QLatin1Char('0'))
        return length - (dot < 0 ? 0 : 1) <= 6;
    qsizetype zeros = 0; // after "0.", ended by the fraction's last digit, which is not a zero
    while (text[dot + 1 + zeros] == QLatin1Char('0'))
        ++zeros;
    return zeros <= 3 && length - dot - 1 - zeros <= 6; // 0.00001 prints as 1e-05
}

// "%g" in the C locale into `out`, which has room for 32 characters; returns how many were written.
qsizetype formatNumberInto(double value, char16_t *out)
{
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
    const qsizetype length = result.ptr - buffer;
    for (qsizetype i = 0; i < length; ++i)
        out[i] = char16_t(static_cast<unsigned char>(buffer[i]));
    return length;
}

// The texts of a list (the shared strings, the sheet names) kept in one piece with where each one ends: a
// million short strings cost a million offsets, not a million string objects.
class TextList {
public:
    void append(QStringView text)
    {
        m_all += text;
        m_ends.append(m_all.size());
    }
    qsizetype size() const { return m_ends.size(); }
    qsizetype chars() const { return m_all.size(); }
    QStringView at(qsizetype i) const
    {
        const qsizetype from = i == 0 ? 0 : m_ends[i - 1];
        return QStringView(m_all).sliced(from, m_ends[i] - from);
    }
    void clear()
    {
        m_all.clear();
        m_ends.clear();
    }

private:
    QString m_all;
    QList<qsizetype> m_ends;
};

enum class PartResult { Done, Skipped, Failed };

// One call of extractText: the archive, what was found so far and the first error.
class Extraction {
public:
    explicit Extraction(const QString &path)
        : m_archive(path)
    {
    }

    std::optional<QString> run();

private:
    std::optional<QString> fail(const QString &description)
    {
        DebugLog::log(errorPrefix() + description);
        return m_result.isEmpty() ? std::nullopt : std::optional<QString>(std::move(m_result));
    }
    bool overBudget()
    {
        if (m_result.size() + m_shared.chars() <= MaxTextChars)
            return false;
        m_error = QStringLiteral("The workbook's text is longer than ") +
                  QString::number(MaxTextChars >> 20) + QStringLiteral(" Mi characters");
        return true;
    }
    PartResult collect(const QString &name, const QString &pattern, QLatin1String literal, TextList &found);
    PartResult extractSheet(const QString &file, const QString &name);

    WorkbookArchive m_archive;
    TextList m_shared;
    QString m_result;
    QString m_error; // a failure of our own (pattern, text budget), besides the archive's limits
};

// Every match of `pattern` in the part, in order, as one search over the whole part would find them,
// while only a stretch of the part is held: a match that reached the end of what has arrived, or a search
// that did, is tried again with more text. Every match begins with `literal`, so what lies before the first
// place where a match could still begin can be forgotten.
PartResult Extraction::collect(const QString &name, const QString &pattern, QLatin1String literal,
                               TextList &found)
{
    const std::unique_ptr<WorkbookArchive::Text> part = m_archive.open(name);
    IcuRegex regex(pattern);
    if (!regex.isValid()) {
        m_error = regex.errorString();
        return PartResult::Failed;
    }
    qsizetype from = 0;
    part->readMore(StepChars);
    while (part->status() == WorkbookArchive::Status::Ok) {
        const QString &held = part->held();
        regex.setText(held);
        regex.setRange(from, held.size());
        while (regex.findNext() && (!regex.hitEnd() || part->atEnd())) {
            found.append(regex.captured(1));
            from = regex.end(0);
            if (overBudget())
                return PartResult::Failed;
        }
        if (!regex.isValid()) {
            m_error = regex.errorString();
            return PartResult::Failed;
        }
        if (part->atEnd())
            return PartResult::Done;
        qsizetype keep = std::max(from, held.size() - (literal.size() - 1));
        for (qsizetype at = held.indexOf(literal, from); at >= 0; at = held.indexOf(literal, at + 1)) {
            regex.setRange(at, held.size());
            regex.matchesAtStart();
            if (regex.hitEnd() || !regex.isValid()) {
                keep = at;
                break;
            }
        }
        part->forget(keep);
        from -= std::min(from, keep);
        part->readMore(std::max(StepChars, part->held().size()));
    }
    found.clear();
    return part->status() == WorkbookArchive::Status::OverLimit ? PartResult::Failed : PartResult::Skipped;
}

// One worksheet: its marker, then the rows, each row's values found by the cell pattern.
PartResult Extraction::extractSheet(const QString &file, const QString &name)
{
    const std::unique_ptr<WorkbookArchive::Text> part = m_archive.open(file);
    if (part->status() != WorkbookArchive::Status::Ok)
        return PartResult::Skipped;

    // Nothing of a sheet counts until its part was read to the end as UTF-8: one that is not is skipped
    // as a whole, marker and header line included.
    const qsizetype sheetStart = m_result.size();
    m_result += QStringLiteral("[TABELLE: ") + name + QStringLiteral("]\n");
    QString headerLine;
    qsizetype rowCount = 0;

    qsizetype from = 0;
    part->readMore(StepChars);
    while (part->status() == WorkbookArchive::Status::Ok) {
        const QStringView held = part->held();
        qsizetype openRow = -1;
        if (const auto row = WorkbookPatterns::findRow(held, from, &openRow)) {
            from = row->end;
            // The values go straight into the result, tab after tab: a row of millions of cells costs its
            // text, not a string object per cell.
            const qsizetype rowStart = m_result.size();
            qsizetype count = 0;
            const auto take = [&](QStringView value) {
                if (count > 0)
                    m_result += QLatin1Char('\t');
                m_result += value;
                if (rowCount == 0) {
                    if (count > 0)
                        headerLine += QStringLiteral(", ");
                    headerLine += value;
                }
                ++count;
            };
            WorkbookPatterns::CellScanner cells(
                held.sliced(row->valueStart, row->valueEnd - row->valueStart));
            while (const auto cell = cells.next()) {
                const QStringView value =
                    held.sliced(row->valueStart + cell->valueStart, cell->valueEnd - cell->valueStart);
                if (cell->group == 1) {
                    const auto index = parseIndex(value);
                    if (index && *index < m_shared.size())
                        take(m_shared.at(*index));
                } else if (cell->group == 2) {
                    take(value);
                } else if (printsAsItself(value)) {
                    take(value);
                } else if (const auto number = parseNumber(value)) {
                    char16_t digits[32];
                    take(QStringView(digits, formatNumberInto(*number, digits)));
                }
            }
            if (count == 0) {
                m_result.truncate(rowStart);
                continue;
            }
            if (rowCount == 0)
                headerLine.prepend(QStringLiteral("   └─ Sheet [") + name + QStringLiteral("] Headers: "));
            m_result += QLatin1Char('\n');
            ++rowCount;
            if (overBudget()) {
                m_result.truncate(sheetStart);
                return PartResult::Failed;
            }
            continue;
        }
        if (part->atEnd()) {
            m_result += QLatin1Char('\n');
            if (!headerLine.isEmpty())
                DebugLog::log(headerLine);
            return PartResult::Done;
        }
        // Keep the row that is still open, or the last characters that may begin one.
        const qsizetype keep = openRow >= 0 ? openRow : std::max(from, held.size() - 3);
        part->forget(keep);
        from -= std::min(from, keep);
        part->readMore(std::max(StepChars, part->held().size()));
    }
    m_result.truncate(sheetStart);
    return part->status() == WorkbookArchive::Status::OverLimit ? PartResult::Failed : PartResult::Skipped;
}

std::optional<QString> Extraction::run()
{
    if (!m_archive.fileError().isEmpty())
        return fail(m_archive.fileError());
    if (!m_archive.limitError().isEmpty())
        return fail(m_archive.limitError());
    const auto failure = [this] { return fail(m_error.isEmpty() ? m_archive.limitError() : m_error); };

    if (collect(QStringLiteral("xl/sharedStrings.xml"), SharedStringPattern, QLatin1String("<t"), m_shared) ==
        PartResult::Failed)
        return failure();
    TextList sheetNames;
    if (collect(QStringLiteral("xl/workbook.xml"), SheetNamePattern, QLatin1String("<sheet "), sheetNames) ==
        PartResult::Failed)
        return failure();

    QStringList sheetFiles;
    for (const QString &name : m_archive.list(QStringLiteral("xl/worksheets/"))) {
        if (name.startsWith(QLatin1String("sheet")) && name.endsWith(QLatin1String(".xml")))
            sheetFiles.append(name);
    }
    XLSXHelper::sortSheetFiles(sheetFiles);

    DebugLog::log(QStringLiteral("📊 XLSX: Found ") + QString::number(sheetFiles.size()) +
                  QStringLiteral(" sheets, ") + QString::number(m_shared.size()) +
                  QStringLiteral(" shared strings"));

    for (qsizetype i = 0; i < sheetFiles.size(); ++i) {
        const QString name = i < sheetNames.size() ? sheetNames.at(i).toString()
                                                   : QStringLiteral("Sheet ") + QString::number(i + 1);
        if (extractSheet(QStringLiteral("xl/worksheets/") + sheetFiles.at(i), name) == PartResult::Failed)
            return failure();
    }
    if (m_result.isEmpty())
        return std::nullopt;
    return std::move(m_result);
}

} // namespace

QString XLSXHelper::formatNumber(double value)
{
    char16_t digits[32];
    return QString(reinterpret_cast<const QChar *>(digits), formatNumberInto(value, digits));
}

void XLSXHelper::sortSheetFiles(QStringList &names)
{
    // The user's collation with digit runs compared by value and case ignored, as a file manager sorts.
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(icu::Locale(QLocale().name().toLatin1().constData()), status));
    if (U_SUCCESS(status) && collator) {
        collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
        collator->setStrength(icu::Collator::SECONDARY);
    }
    const auto order = [&](const QString &a, const QString &b) {
        if (!collator || U_FAILURE(status))
            return 0;
        UErrorCode compareStatus = U_ZERO_ERROR;
        const UCollationResult r =
            collator->compare(reinterpret_cast<const UChar *>(a.utf16()), int32_t(a.size()),
                              reinterpret_cast<const UChar *>(b.utf16()), int32_t(b.size()), compareStatus);
        return U_FAILURE(compareStatus) ? 0 : int(r);
    };
    std::stable_sort(names.begin(), names.end(), [&](const QString &a, const QString &b) {
        const int r = order(a, b);
        return r != 0 ? r < 0 : a < b;
    });
}

std::optional<QString> XLSXHelper::extractText(const QString &path)
{
    SecurityScope::startAccessing(path); // nothing to end on this platform
    Extraction extraction(path);
    return extraction.run();
}
