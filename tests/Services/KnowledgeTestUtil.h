#pragma once

#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "Services/DebugLog.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QFile>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <qcoro/qcorotask.h>

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
    QStringList messages;
    for (const QString &line :
         QString::fromUtf8(file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray()).split('\n'))
        if (line.startsWith(QLatin1Char('[')) && line.contains(QStringLiteral("] ")))
            messages.append(line.section(QStringLiteral("] "), 1));
    return messages;
}

inline int countLog(const QString &message)
{
    return int(logMessages().count(message));
}

inline QUrl writeFile(const QString &name, const QByteArray &content)
{
    return QUrl::fromLocalFile(TestEnvironment::writeFile(name, content));
}

inline QUrl track(ContextManager &manager, const QString &name, const QByteArray &content)
{
    const QUrl url = writeFile(name, content);
    manager.addFile(url);
    QCoro::waitFor(manager.waitUntilIdle());
    return url;
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
