#pragma once

#include "ConsoleCapture.h"
#include "TestMain.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <utility>

// Test cases kept as data under tests/data/<suite>/. A JSON file holds the cases of one behaviour, each a
// name and an array of its values; rows are named "<file>: <case>" so that a failure says where to look.
namespace CaseFiles {

inline QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every case of the suite; nothing at all when one of its files does not read as an object of cases.
inline QList<std::pair<QByteArray, QJsonArray>> cases(const QString &suite)
{
    QList<std::pair<QByteArray, QJsonArray>> all;
    const QDir dir(TestEnvironment::data(suite));
    for (const QString &name : dir.entryList({QStringLiteral("*.json")})) {
        const QJsonObject cases = QJsonDocument::fromJson(read(dir.filePath(name))).object();
        if (cases.isEmpty())
            return {};
        for (auto it = cases.begin(); it != cases.end(); ++it)
            all.append({(name.chopped(5) + QStringLiteral(": ") + it.key()).toUtf8(), it->toArray()});
    }
    return all;
}

// Rows of a table with the columns file and expected: every file of the folder that matches, with
// tests/data/<suite>/<file name without extension>.expected ("" when it is missing).
inline void addFileRows(const QString &inputs, const QString &suite, const QString &filter)
{
    const QDir dir(inputs);
    for (const QString &name : dir.entryList({filter}))
        QTest::newRow(name.toUtf8().constData())
            << dir.filePath(name)
            << QString::fromUtf8(read(TestEnvironment::data(suite) + u'/' +
                                      QFileInfo(name).completeBaseName() + QStringLiteral(".expected")));
}

// A text as lines, the way a file holds them: its last line end opens no further line.
inline QStringList lines(QString text)
{
    if (text.endsWith(u'\n'))
        text.chop(1);
    return text.split(u'\n');
}

// A JSON body as an .expected file holds it: indented, one member a line.
inline QStringList lines(const QJsonObject &body)
{
    return lines(QString::fromUtf8(QJsonDocument(body).toJson()));
}

// The lines of tests/data/<name>.expected, to compare with the lines a test saw: a failure names the first
// line that differs.
inline QStringList expected(const QString &name)
{
    return lines(QString::fromUtf8(read(TestEnvironment::data(name + QStringLiteral(".expected")))));
}

// What a reader gave, the way an .expected file holds it: the console lines without their time, then the
// text.
inline QString outcome(const ConsoleCapture &console, const std::optional<QString> &text)
{
    QString all;
    for (const QString &line : console.lines())
        all += line.section(QStringLiteral("] "), 1) + u'\n';
    return all + text.value_or(QString());
}

} // namespace CaseFiles
