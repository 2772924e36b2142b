#pragma once

#include <QString>

// Every length, limit and cut the user can see counts user-perceived characters (extended grapheme
// clusters, as ICU's character break iterator finds them), never bytes or UTF-16 units.
namespace Graphemes {

qsizetype count(const QString &text);
// The first `n` characters of `text` (all of it when it is shorter).
QString prefix(const QString &text, qsizetype n);
// True when `text` has more than `n` characters; stops counting early.
bool longerThan(const QString &text, qsizetype n);

// Counts the characters of a text that grows at its end, each part of it once. A boundary counts only when
// a character follows it, so a character is never cut that the next piece would extend (a combining mark,
// the second half of a flag, the LF after a CR).
class Counter {
public:
    // Counts on through `text`, which is the earlier text with more appended, up to `limit` characters.
    void advance(const QString &text, qsizetype limit);
    // Characters counted so far, and the offset where the last of them ends.
    qsizetype count() const { return m_count; }
    qsizetype offset() const { return m_offset; }

private:
    qsizetype m_count = 0;
    qsizetype m_offset = 0;
};

} // namespace Graphemes
