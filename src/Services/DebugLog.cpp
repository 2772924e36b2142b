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

// Qt has no medium time style: the long one without its time-zone field is the same thing. The
// derivation is remembered per locale, since a test or the user may switch the default one.
QString mediumTimeFormat(const QLocale &locale)
{
    thread_local QString cachedName;
    thread_local QString cachedFormat;
    if (cachedFormat.isEmpty() || cachedName != locale.name()) {
        static const QRegularExpression zone(QStringLiteral("\\s*\\(?t+\\)?"));
        QString format = locale.timeFormat(QLocale::LongFormat);
        format.remove(zone);
        cachedFormat = format.trimmed();
        cachedName = locale.name();
    }
    return cachedFormat;
}

} // namespace

QString DebugLog::filePath()
{
    return QDir::homePath() + QStringLiteral("/Desktop/quillmoor_debug.log");
}

QString DebugLog::timeOfDay()
{
    const QLocale locale;
    return locale.toString(QTime::currentTime(), mediumTimeFormat(locale));
}

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
