#pragma once

#include <QStringList>

// The command-line companion's commands; each takes the arguments after its name and returns the exit status.
namespace Cli {

constexpr int ExitOk = 0;
constexpr int ExitNothing = 1;
constexpr int ExitTurnFailed = 2;
constexpr int ExitUsage = 64;

int extract(const QStringList &args);
int chunks(const QStringList &args);
int ask(const QStringList &args);

} // namespace Cli
