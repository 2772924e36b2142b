#pragma once

#include <QString>

// The knowledge pipeline's plain-text trace in the user's Desktop folder, echoed on the console.
// Callable from any thread; entries are written one at a time.
namespace DebugLog {

// $HOME/Desktop/quillmoor_debug.log; the Desktop folder is never created.
QString filePath();
// Replaces any earlier log with the header line. Called once per process by the knowledge base.
void start();
// Appends "[time] message\n", creating the file (without header) when it went missing.
void log(const QString &message);
// The time of day in the user's locale's medium format (seconds, no date, no zone).
QString timeOfDay();

} // namespace DebugLog
