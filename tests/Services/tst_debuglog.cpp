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
    void cleanup() { QLocale::setDefault(QLocale::c()); }

    void livesOnTheDesktop()
    {
        QCOMPARE(DebugLog::filePath(),
                 TestEnvironment::home().path() + QStringLiteral("/Desktop/quillmoor_debug.log"));
    }

    void startReplacesEarlierLogWithHeader()
    {
        QFile old(DebugLog::filePath());
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("last run's entries\n");
        old.close();

        DebugLog::start();
        QCOMPARE(readLog(), Header);
        DebugLog::log(QStringLiteral("ContextManager initialized"));
        const QStringList lines = readLog().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3); // header, entry, and the empty rest after the last break
        QVERIFY(lines.at(1).endsWith(QStringLiteral("] ContextManager initialized")));
    }

    void entryIsEchoedUnchanged_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addRow("plain") << QStringLiteral("📦 Created 3 chunks from a.txt");
        QTest::addRow("empty") << QString();
        QTest::addRow("several lines") << QStringLiteral("📄 First 200 chars: eins\nzwei\n");
    }
    void entryIsEchoedUnchanged()
    {
        QFETCH(QString, message);
        DebugLog::start();
        ConsoleCapture console;
        DebugLog::log(message);
        const QString entry = readLog().mid(Header.size());
        QCOMPARE(console.text(), entry);
        const QRegularExpression shape(QStringLiteral("^\\[([^\\]\\n]+)\\] (.*)\\n$"),
                                       QRegularExpression::DotMatchesEverythingOption);
        const QRegularExpressionMatch m = shape.match(entry);
        QVERIFY2(m.hasMatch(), qPrintable(entry));
        QCOMPARE(m.captured(2), message);
    }

    void timeOfDayFollowsLocale_data()
    {
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("pattern");
        QTest::addRow("German") << QStringLiteral("de_DE") << QStringLiteral("^\\d\\d:\\d\\d:\\d\\d$");
        QTest::addRow("English") << QStringLiteral("en_US")
                                 << QStringLiteral("^\\d{1,2}:\\d\\d:\\d\\d\\s(AM|PM)$");
    }
    void timeOfDayFollowsLocale()
    {
        QFETCH(QString, locale);
        QFETCH(QString, pattern);
        QLocale::setDefault(QLocale(locale));
        const QString time = DebugLog::timeOfDay();
        QVERIFY2(QRegularExpression(pattern).match(time).hasMatch(), qPrintable(time));
    }

    void deletedLogComesBackWithoutHeader()
    {
        DebugLog::start();
        DebugLog::log(QStringLiteral("before"));
        QVERIFY(QFile::remove(DebugLog::filePath()));
        DebugLog::log(QStringLiteral("after"));
        const QString text = readLog();
        QVERIFY(text.startsWith(QLatin1Char('[')));
        QVERIFY(text.endsWith(QStringLiteral("] after\n")));
        QCOMPARE(text.count(QLatin1Char('\n')), 1);
    }

    void missingDesktopIsNotCreated()
    {
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
