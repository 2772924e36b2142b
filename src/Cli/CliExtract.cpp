#include "Commands.h"

// Replaced by the extraction commands.
int Cli::extract(const QStringList &) { return ExitUsage; }
int Cli::chunks(const QStringList &) { return ExitUsage; }
