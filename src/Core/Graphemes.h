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

} // namespace Graphemes
