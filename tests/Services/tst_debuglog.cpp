#include "TestMain.h"

#include "ConsoleCapture.h"
#include "Services/DebugLog.h"

#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QThread>

#include <memory>
#include <vector>

namespace {

QString readLog()
{
    QFile file(DebugLog::filePath());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

const QString Header = QStringLiteral("=== QuillmoorMinimal RAG Debug Log ===\n");

} // namespace

class TestDebugLog : public QObject {
    Q_OBJECT
private slots:
    void init() { QFile::remove(DebugLog::filePath()); }

    // The start replaces the last run's log with a header; each entry goes to the log and, unchanged, to
    // the console.
    void entryIsLoggedAndEchoedUnchanged_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addRow("plain") << QStringLiteral("📦 Created 3 chunks from a.txt");
        QTest::addRow("empty") << QString();
        QTest::addRow("several lines") << QStringLiteral("📄 First 200 chars: eins\nzwei\n");
    }
    void entryIsLoggedAndEchoedUnchanged()
    {
        QFETCH(QString, message);
        TestEnvironment::writeFile(QStringLiteral("Desktop/quillmoor_debug.log"), "last run's entries\n");
        DebugLog::start();
        QCOMPARE(readLog(), Header);
        ConsoleCapture console;
        DebugLog::log(message);
        const QString entry = readLog().mid(Header.size());
        QCOMPARE(console.text(), entry);
        const QRegularExpression shape(QStringLiteral("^\\[([^\\]\\n]+)\\] (.*)\\n$"),
                                       QRegularExpression::DotMatchesEverythingOption);
        QCOMPARE(shape.match(entry).captured(2), message);
    }

    void timeOfDayFollowsLocale()
    {
        QLocale::setDefault(QLocale(QStringLiteral("de_DE")));
        const QString german = DebugLog::timeOfDay();
        QLocale::setDefault(QLocale(QStringLiteral("en_US")));
        const QString english = DebugLog::timeOfDay();
        QLocale::setDefault(QLocale::c());
        QVERIFY(QRegularExpression(QStringLiteral("^\\d\\d:\\d\\d:\\d\\d$")).match(german).hasMatch());
        QVERIFY(QRegularExpression(QStringLiteral("^\\d{1,2}:\\d\\d:\\d\\d\\s(AM|PM)$"))
                    .match(english)
                    .hasMatch());
    }

    // A deleted log comes back without its header; without a Desktop the entry still reaches the console,
    // and no Desktop is made.
    void entriesWithoutTheFile()
    {
        DebugLog::start();
        QVERIFY(QFile::remove(DebugLog::filePath()));
        DebugLog::log(QStringLiteral("after"));
        QVERIFY(QRegularExpression(QStringLiteral("^\\[[^\\]]+\\] after\\n$")).match(readLog()).hasMatch());

        QTemporaryDir otherHome;
        const QByteArray savedHome = qgetenv("HOME");
        qputenv("HOME", otherHome.path().toUtf8());
        ConsoleCapture console;
        DebugLog::start();
        DebugLog::log(QStringLiteral("nowhere to write"));
        qputenv("HOME", savedHome);
        QVERIFY(!QFileInfo::exists(otherHome.path() + QStringLiteral("/Desktop")));
        QVERIFY(console.text().endsWith(QStringLiteral("] nowhere to write\n")));
    }

    void entriesFromManyThreadsStayWhole()
    {
        DebugLog::start();
        ConsoleCapture console;
        constexpr int Threads = 8;
        constexpr int PerThread = 200;
        std::vector<std::unique_ptr<QThread>> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.emplace_back(QThread::create([t] {
                for (int i = 0; i < PerThread; ++i)
                    DebugLog::log(QStringLiteral("thread %1 entry %2 ").arg(t).arg(i) +
                                  QString(40, QChar(u'ä')));
            }));
            threads.back()->start();
        }
        for (auto &thread : threads)
            QVERIFY(thread->wait(60000));

        const QStringList lines = readLog().mid(Header.size()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), Threads * PerThread);
        const QRegularExpression whole(QStringLiteral("^\\[[^\\]]+\\] thread \\d entry \\d+ ä{40}$"));
        for (const QString &line : lines)
            QVERIFY2(whole.match(line).hasMatch(), qPrintable(line));
        QCOMPARE(console.lines().size(), Threads * PerThread);
    }
};

QUILLMOOR_TEST_MAIN(TestDebugLog)
#include "tst_debuglog.moc"
