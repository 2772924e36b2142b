#pragma once

#include "Services/DebugLog.h"

#include <QDir>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QUrl>

// Small helpers shared by the knowledge base's tests.
namespace KnowledgeTest {

// The debug log's messages, without their time stamps.
inline QStringList logMessages()
{
    QFile file(DebugLog::filePath());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList messages;
    for (const QString &line : QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'))) {
        const qsizetype close = line.indexOf(QStringLiteral("] "));
        if (line.startsWith(QLatin1Char('[')) && close > 0)
            messages.append(line.mid(close + 2));
    }
    return messages;
}

inline int countLog(const QString &message)
{
    return int(logMessages().count(message));
}

inline QUrl writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(content);
    file.close();
    return QUrl::fromLocalFile(path);
}

// A CSV table of `rows` data rows: one chunk per row.
inline QByteArray csv(int rows)
{
    QByteArray text = "Artikel\tPreis\n";
    for (int i = 0; i < rows; ++i)
        text += "Artikel " + QByteArray::number(i) + "\t" + QByteArray::number(i * 3) + "\n";
    return text;
}

} // namespace KnowledgeTest
