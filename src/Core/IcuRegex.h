#pragma once

#include <QString>
#include <QStringView>

#include <memory>

#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RegexMatcher;
class RegexPattern;
U_NAMESPACE_END
struct UText;

// A regular expression run by ICU, the engine whose syntax and semantics the patterns are written in, over
// UTF-16 text that the caller keeps alive; positions are UTF-16 offsets into that text. Matching has no
// step limit; when the engine stops on one of its own limits (or any other error), that is reported
// through errorString() and never taken for "no match".
class IcuRegex {
public:
    enum Option { NoOption = 0, DotMatchesLineSeparators = 1 };

    explicit IcuRegex(const QString &pattern, Option options = NoOption);
    ~IcuRegex();
    IcuRegex(const IcuRegex &) = delete;
    IcuRegex &operator=(const IcuRegex &) = delete;

    // Empty while the pattern compiled and every match so far ran to its end.
    const QString &errorString() const { return m_error; }
    bool isValid() const { return m_error.isEmpty(); }

    // The text searched from now on; it must stay unchanged until the next call.
    void setText(QStringView text);
    // Limits the next searches to [from, to), as if the text were only that part.
    void setRange(qsizetype from, qsizetype to);
    // The next match within the range, searching on from the end of the last one.
    bool findNext();
    // Whether the range matches from its very first position on.
    bool matchesAtStart();
    // Whether the last search looked at the end of the range: with more text its outcome could differ.
    bool hitEnd() const;

    // Of the last match: where a group starts and ends, -1 when it took no part.
    qsizetype start(int group) const;
    qsizetype end(int group) const;
    QStringView captured(int group) const;

private:
    bool check(int status);

    std::unique_ptr<icu::RegexPattern> m_pattern;
    std::unique_ptr<icu::RegexMatcher> m_matcher;
    std::unique_ptr<UText, void (*)(UText *)> m_utext;
    QStringView m_text;
    QString m_error;
};
