#pragma once

#include "Core/Console.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>

// What every target sets up before its first input: a Qt application without a display (fonts and image
// plugins need one), a home of its own so nothing lands in the user's files, and the console lines out of
// the way.
namespace Fuzz {

inline void start(const char *program)
{
    static QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/.config")).toUtf8());
    qputenv("XDG_CACHE_HOME", (home.path() + QStringLiteral("/.cache")).toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static int argc = 1;
    static char *argv[] = {const_cast<char *>(program), nullptr};
    static QGuiApplication app(argc, argv);
    Console::setStream(std::fopen("/dev/null", "w"));
}

// A scratch file with the input as its content and a chosen name, for the entry points that read files.
// In memory where the system has a memory file system: a disk file system flushes a truncated file on
// every close, which costs more than the parsing.
class ScratchFile {
public:
    explicit ScratchFile(const QString &name)
        : m_dir(QDir(QStringLiteral("/dev/shm")).exists()
                    ? QStringLiteral("/dev/shm/quillmoor-fuzz-XXXXXX")
                    : QDir::tempPath() + QStringLiteral("/quillmoor-fuzz-XXXXXX"))
        , m_path(m_dir.filePath(name))
    {
    }
    const QString &write(const uint8_t *data, size_t size)
    {
        QFile file(m_path);
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            file.write(reinterpret_cast<const char *>(data), qint64(size));
        return m_path;
    }

private:
    QTemporaryDir m_dir;
    QString m_path;
};

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), qsizetype(size));
}

} // namespace Fuzz

#define QUILLMOOR_FUZZ_INIT                                                                                  \
    extern "C" int LLVMFuzzerInitialize(int *, char ***argv)                                                 \
    {                                                                                                        \
        Fuzz::start((*argv)[0]);                                                                             \
        return 0;                                                                                            \
    }
