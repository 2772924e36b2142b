#include "DebugLog.h"

#include "Core/Console.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QTime>

#include <mutex>

namespace {

std::mutex &logMutex()
{
    static std::mutex mutex;
    return mutex;
}

const QString &mediumTimeFormat()
{
    // Qt has no medium time style: the long one without its time-zone field is the same thing.
    static const QString format = [] {
        QString f = QLocale().timeFormat(QLocale::LongFormat);
        f.remove(QRegularExpression(QStringLiteral("\\s*\\(?t+\\)?")));
        return f.trimmed();
    }();
    return format;
}

} // namespace

QString DebugLog::filePath() { return QDir::homePath() + QStringLiteral("/Desktop/quillmoor_debug.log"); }

QString DebugLog::timeOfDay() { return QLocale().toString(QTime::currentTime(), mediumTimeFormat()); }

void DebugLog::start()
{
    std::lock_guard lock(logMutex());
    QFile file(filePath());
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write("=== QuillmoorMinimal RAG Debug Log ===\n");
}

void DebugLog::log(const QString &message)
{
    const QString entry = QLatin1Char('[') + timeOfDay() + QStringLiteral("] ") + message + QLatin1Char('\n');
    const QByteArray bytes = entry.toUtf8();
    std::lock_guard lock(logMutex());
    Console::write(entry);
    QFile file(filePath());
    // Append when the file is there; a deleted log comes back without its header.
    const QIODevice::OpenMode mode = file.exists() ? QIODevice::Append : QIODevice::WriteOnly;
    if (file.open(mode))
        file.write(bytes);
}
