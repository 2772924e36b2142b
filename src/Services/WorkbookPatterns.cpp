#include "WorkbookPatterns.h"

#include <unicode/uchar.h>

#include <algorithm>

namespace WorkbookPatterns {

namespace {

// "\d": a code point of the general category Nd, as ICU's regular expressions define it.
qsizetype decimalDigits(QStringView text, qsizetype at)
{
    qsizetype i = at;
    while (i < text.size()) {
        char32_t c = text[i].unicode();
        if (c >= u'0' && c <= u'9') {
            ++i; // the usual digits, without asking ICU
            continue;
        }
        qsizetype width = 1;
        if (QChar::isHighSurrogate(c) && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            c = QChar::surrogateToUcs4(text[i], text[i + 1]);
            width = 2;
        }
        if (u_charType(UChar32(c)) != U_DECIMAL_DIGIT_NUMBER)
            break;
        i += width;
    }
    return i - at;
}

// "[0-9.]"
qsizetype numberChars(QStringView text, qsizetype at)
{
    qsizetype i = at;
    while (i < text.size() && ((text[i] >= u'0' && text[i] <= u'9') || text[i] == u'.'))
        ++i;
    return i - at;
}

// The first occurrence of `literal` at or after `from`. The tags of a worksheet lie a few characters apart:
// a plain loop finds them sooner than Qt's general string search, which prepares a table on every call.
qsizetype findLiteral(QStringView text, QStringView literal, qsizetype from)
{
    const char16_t *chars = reinterpret_cast<const char16_t *>(text.data());
    const char16_t *wanted = reinterpret_cast<const char16_t *>(literal.data());
    const qsizetype length = literal.size();
    const qsizetype last = text.size() - length;
    for (qsizetype at = std::max<qsizetype>(from, 0); at <= last; ++at) {
        if (chars[at] != wanted[0])
            continue;
        qsizetype i = 1;
        while (i < length && chars[at + i] == wanted[i])
            ++i;
        if (i == length)
            return at;
    }
    return -1;
}

bool startsAt(QStringView text, qsizetype at, QStringView literal)
{
    if (at + literal.size() > text.size())
        return false;
    for (qsizetype i = 0; i < literal.size(); ++i) {
        if (text[at + i] != literal[i])
            return false;
    }
    return true;
}

// The types a cell's tag names, as the alternatives look for them: "<c[^>]*t=\"s\"[^>]*>" holds when
// t="s" lies anywhere between "<c" and the tag's first ">", since none of these types contains a ">". So
// only the tag's own text is searched, once for all three, not the row ahead of it for each.
struct CellTypes {
    bool shared = false;
    bool inlineOrStr = false;
};

CellTypes cellTypes(QStringView tag)
{
    CellTypes types;
    for (qsizetype at = findLiteral(tag, u"t=\"", 0); at >= 0; at = findLiteral(tag, u"t=\"", at + 1)) {
        types.shared = types.shared || startsAt(tag, at + 3, u"s\"");
        types.inlineOrStr =
            types.inlineOrStr || startsAt(tag, at + 3, u"inlineStr\"") || startsAt(tag, at + 3, u"str\"");
    }
    return types;
}

} // namespace

// From "<row", "[^>]*" runs to the first ">", which must follow; the lazy dot then stops at the first
// "</row>" after it. Without that ">" or that "</row>" no later row can match either.
std::optional<Match> findRow(QStringView text, qsizetype from, qsizetype *openRow)
{
    if (openRow)
        *openRow = -1;
    const qsizetype start = findLiteral(text, u"<row", from);
    if (start < 0)
        return std::nullopt;
    const qsizetype tagEnd = text.indexOf(u'>', start + 4);
    const qsizetype close = tagEnd < 0 ? -1 : findLiteral(text, u"</row>", tagEnd + 1);
    if (close < 0) {
        if (openRow)
            *openRow = start;
        return std::nullopt;
    }
    return Match{start, close + 6, 1, tagEnd + 1, close};
}

qsizetype CellScanner::Finder::next(qsizetype from)
{
    // The remembered answer holds for every position from where it was searched up to where it was found.
    if (m_from < 0 || from < m_from || (m_at >= 0 && from > m_at)) {
        m_from = from;
        m_at = findLiteral(m_text, m_needle, from);
    }
    return m_at;
}

CellScanner::CellScanner(QStringView row)
    : m_row(row)
    , m_cellOpen(row, u"<c")
    , m_tagEnd(row, u">")
    , m_value(row, u"<v>")
    , m_cellClose(row, u"</c>")
    , m_textOpen(row, u"<t")
    , m_textClose(row, u"</t>")
{
}

// Each alternative opens with "<c[^>]*", which runs to the cell tag's first ">": the tag holds the type
// attribute or not. Then a lazy dot looks for the first value element that the rest of the alternative
// accepts, and a second one for the first "</c>" after it. A value element without a "</c>" after it fails
// the alternative as a whole, since every later one lies further on.
std::optional<Match> CellScanner::next()
{
    for (qsizetype start = m_cellOpen.next(m_pos); start >= 0; start = m_cellOpen.next(start + 1)) {
        const qsizetype tagEnd = m_tagEnd.next(start + 2);
        if (tagEnd < 0)
            break; // no ">" for this cell, nor for any later one
        const CellTypes types = cellTypes(m_row.sliced(start + 2, tagEnd - start - 2));
        std::optional<Match> match;
        if (types.shared)
            match = sharedString(start, tagEnd);
        if (!match && types.inlineOrStr)
            match = inlineString(start, tagEnd);
        if (!match)
            match = number(start, tagEnd);
        if (match) {
            m_pos = match->end;
            return match;
        }
    }
    m_pos = m_row.size();
    return std::nullopt;
}

std::optional<Match> CellScanner::sharedString(qsizetype start, qsizetype tagEnd)
{
    for (qsizetype value = m_value.next(tagEnd + 1); value >= 0; value = m_value.next(value + 1)) {
        const qsizetype digits = decimalDigits(m_row, value + 3);
        if (digits == 0 || !startsAt(m_row, value + 3 + digits, u"</v>"))
            continue;
        const qsizetype close = m_cellClose.next(value + 3 + digits + 4);
        if (close < 0)
            return std::nullopt;
        return Match{start, close + 4, 1, value + 3, value + 3 + digits};
    }
    return std::nullopt;
}

std::optional<Match> CellScanner::inlineString(qsizetype start, qsizetype tagEnd)
{
    // "<t[^>]*>" runs from the first "<t" to the first ">" after it, "(.*?)</t>" to the first "</t>" after
    // that; each later "<t" would find the same or later ones.
    const qsizetype text = m_textOpen.next(tagEnd + 1);
    const qsizetype textTagEnd = text < 0 ? -1 : m_tagEnd.next(text + 2);
    const qsizetype textClose = textTagEnd < 0 ? -1 : m_textClose.next(textTagEnd + 1);
    const qsizetype close = textClose < 0 ? -1 : m_cellClose.next(textClose + 4);
    if (close < 0)
        return std::nullopt;
    return Match{start, close + 4, 2, textTagEnd + 1, textClose};
}

std::optional<Match> CellScanner::number(qsizetype start, qsizetype tagEnd)
{
    for (qsizetype value = m_value.next(tagEnd + 1); value >= 0; value = m_value.next(value + 1)) {
        const qsizetype length = numberChars(m_row, value + 3);
        if (length == 0 || !startsAt(m_row, value + 3 + length, u"</v>"))
            continue;
        const qsizetype close = m_cellClose.next(value + 3 + length + 4);
        if (close < 0)
            return std::nullopt;
        return Match{start, close + 4, 3, value + 3, value + 3 + length};
    }
    return std::nullopt;
}

} // namespace WorkbookPatterns
