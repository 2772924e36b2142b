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

    // The start replaces the last run's log with a header; each entry goes to the log and the console,
    // stamped with the locale's medium time. A deleted log comes back without its header.
    void entries_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("time");
        QTest::addRow("empty, American time") << QString() << "en_US"
                                              << "\\d{1,2}:\\d\\d:\\d\\d\\s(?:AM|PM)";
        QTest::addRow("several lines") << QStringLiteral("📄 First 200 chars: eins\nzwei\n") << "C"
                                       << "\\d\\d:\\d\\d:\\d\\d";
    }
    void entries()
    {
        QFETCH(QString, message);
        QFETCH(QString, locale);
        QFETCH(QString, time);
        QLocale::setDefault(QLocale(locale));
        TestEnvironment::writeFile(QStringLiteral("Desktop/quillmoor_debug.log"), "last run's entries\n");
        DebugLog::start();
        QCOMPARE(readLog(), Header);
        ConsoleCapture console;
        DebugLog::log(message);
        const QString entry = readLog().mid(Header.size());
        QCOMPARE(console.text(), entry);
        const QRegularExpression shape(QStringLiteral("^\\[") + time + QStringLiteral("\\] (.*)\\n$"),
                                       QRegularExpression::DotMatchesEverythingOption);
        QCOMPARE(shape.match(entry).captured(1), message); // its shape is checked on the re-created log below
        QVERIFY(QFile::remove(DebugLog::filePath()));
        DebugLog::log(message);
        QLocale::setDefault(QLocale::c());
        QVERIFY(shape.match(readLog()).hasMatch());
    }

    // Without a Desktop the entry still reaches the console, and no Desktop is made.
    void entriesWithoutTheFolder()
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
