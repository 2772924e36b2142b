#include "IcuRegex.h"

#include <unicode/regex.h>
#include <unicode/utext.h>

namespace {

void closeText(UText *text)
{
    if (text)
        utext_close(text);
}

QString describe(UErrorCode status)
{
    switch (status) {
    case U_REGEX_STACK_OVERFLOW:
        return QStringLiteral("The regular expression ran out of backtracking memory");
    case U_REGEX_TIME_OUT:
        return QStringLiteral("The regular expression took too long");
    case U_MEMORY_ALLOCATION_ERROR:
        return QStringLiteral("The regular expression ran out of memory");
    default:
        return QStringLiteral("The regular expression failed (") + QString::fromLatin1(u_errorName(status)) +
               QLatin1Char(')');
    }
}

} // namespace

IcuRegex::IcuRegex(const QString &pattern, Option options)
    : m_utext(nullptr, closeText)
{
    UErrorCode status = U_ZERO_ERROR;
    UParseError where{};
    const icu::UnicodeString source(false, reinterpret_cast<const UChar *>(pattern.utf16()),
                                    int32_t(pattern.size()));
    const uint32_t flags = (options & DotMatchesLineSeparators) ? UREGEX_DOTALL : 0;
    m_pattern.reset(icu::RegexPattern::compile(source, flags, where, status));
    if (U_FAILURE(status) || !m_pattern) {
        m_error = QStringLiteral("The pattern “") + pattern + QStringLiteral("” is invalid at offset ") +
                  QString::number(where.offset) + QStringLiteral(" (") +
                  QString::fromLatin1(u_errorName(status)) + QLatin1Char(')');
        m_pattern.reset();
        return;
    }
    m_matcher.reset(m_pattern->matcher(status));
    check(status);
}

IcuRegex::~IcuRegex() = default;

bool IcuRegex::check(int status)
{
    const auto code = UErrorCode(status);
    if (U_SUCCESS(code))
        return true;
    if (m_error.isEmpty())
        m_error = describe(code);
    return false;
}

void IcuRegex::setText(QStringView text)
{
    if (!m_matcher)
        return;
    static const char16_t nothing[1] = {0};
    const char16_t *data = text.isEmpty() ? nothing : text.utf16();
    UErrorCode status = U_ZERO_ERROR;
    m_utext.reset(utext_openUChars(m_utext.release(), reinterpret_cast<const UChar *>(data),
                                   int64_t(text.size()), &status));
    if (!check(status))
        return;
    m_text = text;
    // The matcher keeps a shallow clone that reads the same characters.
    m_matcher->reset(m_utext.get());
}

void IcuRegex::setRange(qsizetype from, qsizetype to)
{
    if (!m_matcher)
        return;
    UErrorCode status = U_ZERO_ERROR;
    m_matcher->region(int64_t(from), int64_t(to), status);
    check(status);
}

bool IcuRegex::findNext()
{
    if (!m_matcher || !m_error.isEmpty())
        return false;
    UErrorCode status = U_ZERO_ERROR;
    const bool found = m_matcher->find(status);
    return check(status) && found;
}

bool IcuRegex::matchesAtStart()
{
    if (!m_matcher || !m_error.isEmpty())
        return false;
    UErrorCode status = U_ZERO_ERROR;
    const bool found = m_matcher->lookingAt(status);
    return check(status) && found;
}

bool IcuRegex::hitEnd() const
{
    return m_matcher && m_matcher->hitEnd();
}

qsizetype IcuRegex::start(int group) const
{
    UErrorCode status = U_ZERO_ERROR;
    const int64_t at = m_matcher ? m_matcher->start64(group, status) : -1;
    return U_SUCCESS(status) ? qsizetype(at) : -1;
}

qsizetype IcuRegex::end(int group) const
{
    UErrorCode status = U_ZERO_ERROR;
    const int64_t at = m_matcher ? m_matcher->end64(group, status) : -1;
    return U_SUCCESS(status) ? qsizetype(at) : -1;
}

QStringView IcuRegex::captured(int group) const
{
    const qsizetype from = start(group);
    return from < 0 ? QStringView() : m_text.sliced(from, end(group) - from);
}
