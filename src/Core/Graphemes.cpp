#include "Graphemes.h"

#include <unicode/brkiter.h>
#include <unicode/utext.h>

#include <algorithm>
#include <limits>
#include <memory>

namespace {

// Creating a break iterator costs far more than using one, so each thread keeps its own.
icu::BreakIterator *iteratorFor(const QString &text, UText *utext)
{
    thread_local std::unique_ptr<icu::BreakIterator> iterator;
    UErrorCode status = U_ZERO_ERROR;
    if (!iterator) {
        iterator.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status))
            iterator.reset();
    }
    if (!iterator)
        return nullptr;
    status = U_ZERO_ERROR;
    utext_openUChars(utext, reinterpret_cast<const UChar *>(text.utf16()), text.size(), &status);
    if (U_FAILURE(status))
        return nullptr;
    iterator->setText(utext, status);
    return U_FAILURE(status) ? nullptr : iterator.get();
}

// Plain ASCII without CR has one character per unit; this spares the iterator on most texts.
bool isSimple(const QString &text)
{
    for (QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= 0x80 || u == u'\r')
            return false;
    }
    return true;
}

// Returns the UTF-16 offset after the first `n` characters, or -1 when the text has no more than `n`
// characters; `counted` receives the number of characters seen.
qsizetype offsetAfter(const QString &text, qsizetype n, qsizetype *counted)
{
    UText utext = UTEXT_INITIALIZER;
    icu::BreakIterator *it = iteratorFor(text, &utext);
    qsizetype seen = 0;
    qsizetype result = -1;
    if (!it) {
        seen = text.size();
        if (seen > n)
            result = n;
    } else {
        for (int32_t pos = it->next(); pos != icu::BreakIterator::DONE; pos = it->next()) {
            if (seen == n) {
                result = it->previous();
                break;
            }
            ++seen;
        }
    }
    utext_close(&utext);
    if (counted)
        *counted = seen;
    return result;
}

} // namespace

qsizetype Graphemes::count(const QString &text)
{
    if (isSimple(text))
        return text.size();
    qsizetype counted = 0;
    offsetAfter(text, std::numeric_limits<qsizetype>::max(), &counted);
    return counted;
}

QString Graphemes::prefix(const QString &text, qsizetype n)
{
    if (n <= 0)
        return {};
    if (isSimple(text))
        return text.left(n);
    const qsizetype offset = offsetAfter(text, n, nullptr);
    return offset < 0 ? text : text.left(offset);
}

bool Graphemes::longerThan(const QString &text, qsizetype n)
{
    if (text.size() <= n)
        return false; // a character is at least one unit
    if (isSimple(text))
        return true;
    return offsetAfter(text, n, nullptr) >= 0;
}

void Graphemes::Counter::advance(const QString &text, qsizetype limit)
{
    // Two ASCII characters always have a boundary between them, except CR LF: such runs, most of a typical
    // text, are counted without the iterator, which costs many times more per character. The iterator
    // takes over from a known boundary wherever a character outside them comes.
    const qsizetype size = text.size();
    const auto asciiBoundaryAfter = [&text, size](qsizetype offset) {
        if (offset + 1 >= size)
            return false;
        const char16_t here = text[offset].unicode();
        const char16_t next = text[offset + 1].unicode();
        return here < 0x80 && next < 0x80 && !(here == u'\r' && next == u'\n');
    };
    UText utext = UTEXT_INITIALIZER;
    icu::BreakIterator *it = nullptr;
    bool iteratorOpened = false;
    while (m_count < limit && m_offset < size) {
        while (m_count < limit && asciiBoundaryAfter(m_offset)) {
            ++m_offset;
            ++m_count;
        }
        if (m_count >= limit || m_offset >= size)
            break;
        if (!iteratorOpened) {
            it = iteratorFor(text, &utext);
            iteratorOpened = true;
        }
        if (!it) {
            // Without the iterator every unit counts, as count() does then.
            const qsizetype taken = std::min(limit - m_count, size - 1 - m_offset);
            if (taken > 0) {
                m_count += taken;
                m_offset += taken;
            }
            break;
        }
        bool more = false;
        for (int32_t pos = it->following(int32_t(m_offset)); pos != icu::BreakIterator::DONE && pos < size;
             pos = it->next()) {
            m_offset = pos;
            if (++m_count == limit)
                break;
            if (asciiBoundaryAfter(pos)) {
                more = true;
                break;
            }
        }
        if (!more)
            break;
    }
    if (iteratorOpened)
        utext_close(&utext);
}
