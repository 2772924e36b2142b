#include "XLSXHelper.h"

#include "Core/SecurityScope.h"
#include "Services/DebugLog.h"
#include "Services/WorkbookArchive.h"

#include <QLocale>
#include <QRegularExpression>
#include <QStringDecoder>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <limits>
#include <locale.h>
#include <memory>

#include <unicode/coll.h>

namespace {

// The patterns were written for ICU: "\d" is any Unicode digit, and without the dot-all option a dot
// stops at every line terminator ICU knows, not only at LF. (*ANY) gives PCRE2 the same set.
const QString SharedStringPattern = QStringLiteral("(*ANY)<t[^>]*>(.*?)</t>");
const QString SheetNamePattern = QStringLiteral("(*ANY)<sheet [^>]*name=\"([^\"]+)\"");
const QString RowPattern = QStringLiteral("<row[^>]*>(.*?)</row>");
const QString CellPattern =
    QStringLiteral("<c[^>]*t=\"s\"[^>]*>.*?<v>(\\d+)</v>.*?<\\/c>"
                   "|<c[^>]*t=\"(?:inlineStr|str)\"[^>]*>.*?<t[^>]*>(.*?)</t>.*?<\\/c>"
                   "|<c[^>]*>.*?<v>([0-9.]+)</v>.*?<\\/c>");

constexpr auto LineOptions = QRegularExpression::UseUnicodePropertiesOption;
constexpr auto DotAllOptions =
    QRegularExpression::UseUnicodePropertiesOption | QRegularExpression::DotMatchesEverythingOption;

std::optional<QString> decodeUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

QStringList firstGroups(const QRegularExpression &re, const QString &text)
{
    QStringList found;
    for (auto it = re.globalMatch(text); it.hasNext();)
        found.append(it.next().captured(1));
    return found;
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
    const QByteArray ascii = text.toLatin1();
    if (ascii.isEmpty())
        return std::nullopt;
    char *end = nullptr;
    const double value = strtod_l(ascii.constData(), &end, cLocale);
    if (end != ascii.constData() + ascii.size())
        return std::nullopt;
    return value;
}

QString logPrefix()
{
    return QStringLiteral("❌ Error extracting XLSX: ");
}

} // namespace

QString XLSXHelper::formatNumber(double value)
{
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
    return QString::fromLatin1(buffer, result.ptr - buffer);
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
    QString result;
    const auto fail = [&](const QString &description) -> std::optional<QString> {
        DebugLog::log(logPrefix() + description);
        return result.isEmpty() ? std::nullopt : std::optional<QString>(result);
    };

    // A file that is no ZIP archive at all simply has no parts.
    WorkbookArchive archive(path);
    if (!archive.limitError().isEmpty())
        return fail(archive.limitError());

    const auto readText = [&](const QString &name) -> std::optional<QString> {
        const WorkbookArchive::Part part = archive.read(name);
        if (part.status != WorkbookArchive::Status::Ok)
            return std::nullopt;
        return decodeUtf8(part.bytes);
    };

    QStringList sharedStrings;
    if (const auto text = readText(QStringLiteral("xl/sharedStrings.xml")))
        sharedStrings = firstGroups(QRegularExpression(SharedStringPattern, LineOptions), *text);
    if (!archive.limitError().isEmpty())
        return fail(archive.limitError());

    QStringList sheetNames;
    if (const auto text = readText(QStringLiteral("xl/workbook.xml")))
        sheetNames = firstGroups(QRegularExpression(SheetNamePattern, LineOptions), *text);
    if (!archive.limitError().isEmpty())
        return fail(archive.limitError());

    QStringList sheetFiles;
    for (const QString &name : archive.list(QStringLiteral("xl/worksheets/"))) {
        if (name.startsWith(QLatin1String("sheet")) && name.endsWith(QLatin1String(".xml")))
            sheetFiles.append(name);
    }
    sortSheetFiles(sheetFiles);

    DebugLog::log(QStringLiteral("📊 XLSX: Found %1 sheets, %2 shared strings")
                      .arg(sheetFiles.size())
                      .arg(sharedStrings.size()));

    for (qsizetype i = 0; i < sheetFiles.size(); ++i) {
        const std::optional<QString> sheet = readText(QStringLiteral("xl/worksheets/") + sheetFiles.at(i));
        if (!archive.limitError().isEmpty())
            return fail(archive.limitError());
        if (!sheet)
            continue;
        const QString name = i < sheetNames.size() ? sheetNames.at(i) : QStringLiteral("Sheet %1").arg(i + 1);
        result += QStringLiteral("[TABELLE: ") + name + QStringLiteral("]\n");

        const QRegularExpression rowRe(RowPattern, DotAllOptions);
        const QRegularExpression cellRe(CellPattern, DotAllOptions);
        if (!rowRe.isValid() || !cellRe.isValid())
            return fail(rowRe.isValid() ? cellRe.errorString() : rowRe.errorString());

        int rowCount = 0;
        QStringList values;
        for (auto rows = rowRe.globalMatch(*sheet); rows.hasNext();) {
            const QRegularExpressionMatch row = rows.next();
            values.clear();
            for (auto cells = cellRe.globalMatch(row.capturedView(1)); cells.hasNext();) {
                const QRegularExpressionMatch cell = cells.next();
                if (cell.hasCaptured(1)) {
                    const auto index = parseIndex(cell.capturedView(1));
                    if (index && *index < sharedStrings.size())
                        values.append(sharedStrings.at(*index));
                } else if (cell.hasCaptured(2)) {
                    values.append(cell.captured(2));
                } else if (cell.hasCaptured(3)) {
                    if (const auto number = parseNumber(cell.capturedView(3)))
                        values.append(formatNumber(*number));
                }
            }
            if (values.isEmpty())
                continue;
            if (rowCount == 0)
                DebugLog::log(QStringLiteral("   └─ Sheet [") + name + QStringLiteral("] Headers: ") +
                              values.join(QStringLiteral(", ")));
            result += values.join(QLatin1Char('\t'));
            result += QLatin1Char('\n');
            ++rowCount;
        }
        result += QLatin1Char('\n');
    }
    if (result.isEmpty())
        return std::nullopt;
    return result;
}
