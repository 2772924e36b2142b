#pragma once

#include <QElapsedTimer>
#include <QString>

#include <cstdio>
#include <sys/resource.h>

namespace Bench {

// Peak resident set size of this process so far, in MiB.
inline double peakRssMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

// Current resident set size in MiB, read from /proc.
inline double currentRssMiB()
{
    long pages = 0, resident = 0;
    if (FILE *f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(f);
    }
    return double(resident) * 4096.0 / (1024.0 * 1024.0);
}

inline void report(const QString &name, double value, const QString &unit)
{
    std::printf("%-60s %12.3f %s\n", qPrintable(name), value, qPrintable(unit));
    std::fflush(stdout);
}

} // namespace Bench
