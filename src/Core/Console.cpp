#include "Console.h"

#include <atomic>
#include <mutex>

namespace {
std::atomic<FILE *> g_stream{nullptr};
std::mutex g_mutex;
} // namespace

void Console::setStream(FILE *s)
{
    // Under the write lock, so a stream being replaced is never in the middle of a write.
    std::lock_guard lock(g_mutex);
    g_stream.store(s);
}

FILE *Console::stream()
{
    FILE *s = g_stream.load();
    return s ? s : stdout;
}

void Console::write(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::lock_guard lock(g_mutex);
    FILE *s = stream();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), s);
    std::fflush(s);
}

void Console::line(const QString &text)
{
    write(text + QLatin1Char('\n'));
}
