#pragma once

#include "ProviderClient.h"
#include "Services/DebugLog.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QFile>
#include <QString>
#include <QStringList>
#include <QUrl>

// Small helpers shared by the knowledge base's tests.
namespace KnowledgeTest {

// The loopback provider and a client for it; test objects inherit it after QObject.
struct Fixture {
    TestProvider provider;
    std::shared_ptr<const InfomaniakAPI> api = provider.listen() ? clientFor(provider) : nullptr;
};

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

// A file in the test's home, named relative to it, as a URL.
inline QUrl writeFile(const QString &name, const QByteArray &content)
{
    return QUrl::fromLocalFile(TestEnvironment::writeFile(name, content));
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
