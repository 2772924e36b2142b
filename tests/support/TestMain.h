#pragma once

#include "Models/ImageData.h"
#include "Services/NetworkShutdown.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>

// Every test binary runs in a home of its own, so settings, the debug log and knowledge files never touch
// the user's, and without a display.
namespace TestEnvironment {

inline QTemporaryDir &home()
{
    static QTemporaryDir dir;
    return dir;
}

inline void isolate()
{
    const QString path = home().path();
    QDir(path).mkpath(QStringLiteral("Desktop"));
    QDir(path).mkpath(QStringLiteral("tmp")); // temporary files of its own too: tests count what they leave
    qputenv("HOME", path.toUtf8());
    qputenv("XDG_CONFIG_HOME", (path + QStringLiteral("/.config")).toUtf8());
    qputenv("XDG_DATA_HOME", (path + QStringLiteral("/.local/share")).toUtf8());
    qputenv("XDG_CACHE_HOME", (path + QStringLiteral("/.cache")).toUtf8());
    qputenv("TMPDIR", (path + QStringLiteral("/tmp")).toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qunsetenv("QUILLMOOR_API_BASE_URL");
    qunsetenv("QUILLMOOR_API_KEY");
    qunsetenv("QUILLMOOR_EMBEDDING_MODEL");
    qunsetenv("OPENAI_BASE_URL");
    qunsetenv("OPENAI_API_KEY");
}

// Writes a file of the test's own into its home and returns the path ("" when it cannot be written).
inline QString writeFile(const QString &name, const QByteArray &bytes)
{
    QFile file(home().filePath(name));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    file.write(bytes);
    return file.fileName();
}

// A one-colour PNG picture in the test's home; returns its path.
inline QString writePicture(const QString &name, const QSize &size = {32, 24},
                            const QColor &colour = Qt::blue)
{
    QImage picture(size, QImage::Format_RGB32);
    picture.fill(colour);
    const QString path = home().filePath(name);
    return picture.save(path, "PNG") ? path : QString();
}

inline QString fixture(const QString &relative)
{
    return QStringLiteral(QUILLMOOR_FIXTURES_DIR "/") + relative;
}

// The cases a suite keeps as files, under tests/data.
inline QString data(const QString &relative)
{
    return QStringLiteral(QUILLMOOR_FIXTURES_DIR "/../data/") + relative;
}

} // namespace TestEnvironment

#define QUILLMOOR_TEST_MAIN(TestObject)                                                                      \
    int main(int argc, char *argv[])                                                                         \
    {                                                                                                        \
        TestEnvironment::isolate();                                                                          \
        QGuiApplication app(argc, argv);                                                                     \
        ImageData::allowFullSizePhotos();                                                                    \
        int status = 0;                                                                                      \
        {                                                                                                    \
            TestObject tc;                                                                                   \
            QTEST_SET_MAIN_SOURCE_PATH                                                                       \
            status = QTest::qExec(&tc, argc, argv);                                                          \
        }                                                                                                    \
        NetworkShutdown::closeConnections();                                                                 \
        return status;                                                                                       \
    }
