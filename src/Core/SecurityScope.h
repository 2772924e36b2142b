#pragma once

#include <QString>

// Desktop Linux has no sandbox grants: "access" to a user's file means that this process may read it.
namespace SecurityScope {

// Whether the process may read the file at `path` (begins nothing that must be ended).
bool startAccessing(const QString &path);

} // namespace SecurityScope
