#pragma once

#include <QElapsedTimer>
#include <QString>

#include <cstdio>
#include <ctime>
#include <sys/resource.h>

namespace Bench {

// Peak resident set size of this process so far, in MiB. The kernel's high-water mark of this program's own
// memory: getrusage() would also count what a parent held when it started us, which a child process that
// measures one piece of work must not see.
inline double peakRssMiB()
{
    if (FILE *f = std::fopen("/proc/self/status", "r")) {
        char line[256];
        long kib = -1;
        while (std::fgets(line, sizeof line, f)) {
            if (std::sscanf(line, "VmHWM: %ld kB", &kib) == 1)
                break;
        }
        std::fclose(f);
        if (kib >= 0)
            return double(kib) / 1024.0;
    }
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

// CPU seconds the calling thread has used so far. On a machine shared with other work the wall clock swings
// with the load; the CPU time of the work itself hardly does, so rates are given against both.
inline double threadCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// CPU seconds of every thread of this process so far.
inline double processCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

inline void report(const QString &name, double value, const QString &unit)
{
    std::printf("%-60s %12.3f %s\n", qPrintable(name), value, qPrintable(unit));
    std::fflush(stdout);
}

} // namespace Bench
