#include "Commands.h"

int Cli::ask(const QStringList &) { return ExitUsage; }
