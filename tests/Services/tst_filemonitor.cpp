#include "KnowledgeTestUtil.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "Services/FileMonitor.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QDir>
#include <QTemporaryDir>

#include <cstdio>

#include <qcoro/qcorotask.h>

using namespace KnowledgeTest;

namespace {
// Watches held by this process's inotify instances, as the kernel reports them.
int inotifyWatches()
{
    int count = 0;
    const QDir fdinfo(QStringLiteral("/proc/self/fdinfo"));
    for (const QString &entry : fdinfo.entryList(QDir::Files)) {
        QFile file(fdinfo.filePath(entry));
        if (file.open(QIODevice::ReadOnly))
            count += int(file.readAll().count("inotify wd:"));
    }
    return count;
}

// How editors that save atomically do it: a new file renamed over the old one.
void replaceByRename(const QString &path, const QByteArray &content)
{
    writeFile(path + QStringLiteral(".tmp"), content);
    QFile::remove(path); // QFile::rename does not overwrite
    QFile::rename(path + QStringLiteral(".tmp"), path);
}
} // namespace

class TestFileMonitor : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    TestProvider m_provider;
    std::shared_ptr<const InfomaniakAPI> m_api;

private slots:
    void initTestCase()
    {
        QVERIFY(m_provider.listen());
        m_api = clientFor(m_provider);
    }

    void eventSetsPrintAsOptionSets()
    {
        QCOMPARE(FileMonitor::describe(FileMonitor::Write), QStringLiteral("FileSystemEvent(rawValue: 2)"));
        QCOMPARE(FileMonitor::describe(FileMonitor::Delete), QStringLiteral("FileSystemEvent(rawValue: 1)"));
        QCOMPARE(FileMonitor::describe(FileMonitor::Write | FileMonitor::Rename),
                 QStringLiteral("FileSystemEvent(rawValue: 34)"));
    }

    void oneWatchPerFile()
    {
        const int before = inotifyWatches();
        FileMonitor monitor;
        const QUrl url = writeFile(m_dir.filePath(QStringLiteral("einmal.txt")), "x");
        monitor.startMonitoring(url);
        monitor.startMonitoring(url);
        QCOMPARE(monitor.count(), 1);
        QCOMPARE(inotifyWatches(), before + 1);
        monitor.stopMonitoring(url);
        monitor.stopMonitoring(url);
        QCOMPARE(inotifyWatches(), before);
    }

    void writeInPlaceReprocesses()
    {
        ContextManager manager(m_api);
        const QUrl url = writeFile(m_dir.filePath(QStringLiteral("inplace.txt")), "alt");
        manager.addFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        writeFile(url.toLocalFile(), "neuer Inhalt");
        QTRY_COMPARE(countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: 2)] for inplace.txt")),
                     1);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: inplace.txt")), 2);
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("neuer Inhalt"));
    }

    void replacementIsFollowed()
    {
        ContextManager manager(m_api);
        const QString path = m_dir.filePath(QStringLiteral("atomar.txt"));
        const QUrl url = writeFile(path, "erste Fassung");
        manager.addFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        replaceByRename(path, "zweite Fassung");
        QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for atomar.txt")), 1);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("👁️ Started monitoring: atomar.txt")), 2);
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("zweite Fassung"));
        QCOMPARE(manager.monitorCount(), 1);

        // The new file is the one watched now.
        writeFile(path, "dritte Fassung");
        QTRY_COMPARE(countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: 2)] for atomar.txt")),
                     1);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("dritte Fassung"));
    }

    void deletionLeavesTheFileTracked()
    {
        ContextManager manager(m_api);
        const QUrl url = writeFile(m_dir.filePath(QStringLiteral("weg.txt")), "bleibt im Wissen");
        manager.addFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QVERIFY(QFile::remove(url.toLocalFile()));
        QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for weg.txt")), 1);
        QCoro::waitFor(manager.waitUntilIdle());
        QVERIFY(
            logMessages().contains(QStringLiteral("❌ Failed to open for monitoring: ") + url.toLocalFile()));
        QCOMPARE(countLog(QStringLiteral("⚠️ No text extracted from weg.txt")), 1);
        QCOMPARE(manager.trackedFiles(), QList<QUrl>{url});
        QCOMPARE(manager.globalChunks().size(), 1);
        QCOMPARE(manager.monitorCount(), 0);
    }

    void deletedWhileProcessing()
    {
        ContextManager manager(m_api);
        m_provider.setDefaultDelayMs(300);
        const QUrl url = writeFile(m_dir.filePath(QStringLiteral("flüchtig.csv")), csv(3));
        manager.addFile(url);
        QTRY_VERIFY(countLog(QStringLiteral("🔢 Embedding batch 1/1...")) == 1);
        QVERIFY(QFile::remove(url.toLocalFile()));
        QCoro::waitFor(manager.waitUntilIdle());
        m_provider.setDefaultDelayMs(0);
        // The run that was under way still stores its results; the reaction to the deletion finds no text,
        // at once or, when it came while that run was going, in the run that follows it.
        QCOMPARE(countLog(QStringLiteral("✅ Processed: flüchtig.csv (3 chunks, 3 total)")), 1);
        QCOMPARE(countLog(QStringLiteral("⚠️ No text extracted from flüchtig.csv")), 1);
        QCOMPARE(manager.globalChunks().size(), 3);
        QVERIFY(manager.processingFiles().isEmpty());
    }

    // Saved the way editors do (a new file renamed over the old one) while another program still holds the
    // old file open: the kernel reports no deletion until that program closes it, yet the save is followed.
    void replacedWhileAnotherProgramHoldsTheFile()
    {
        ContextManager manager(m_api);
        const QString path = m_dir.filePath(QStringLiteral("offen.txt"));
        const QUrl url = writeFile(path, "erste Fassung");
        manager.addFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QFile holder(path);
        QVERIFY(holder.open(QIODevice::ReadOnly));
        writeFile(path + QStringLiteral(".neu"), "zweite Fassung");
        QCOMPARE(::rename(QFile::encodeName(path + QStringLiteral(".neu")).constData(),
                          QFile::encodeName(path).constData()),
                 0);
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("zweite Fassung"));
        QCOMPARE(countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: 1)] for offen.txt")), 1);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.monitorCount(), 1);

        // Following the new file: the next save lands too, and mere attribute changes are no events.
        QVERIFY(QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
        writeFile(path, "dritte Fassung");
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("dritte Fassung"));
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: offen.txt")), 3);
    }

    // Two tracked paths that lead to one file share the kernel's watch: each hears the file's changes, and
    // removing one leaves the other watched.
    void pathsToTheSameFile()
    {
        ContextManager manager(m_api);
        const QString path = m_dir.filePath(QStringLiteral("ziel.txt"));
        const QString link = m_dir.filePath(QStringLiteral("verweis.txt"));
        const QUrl target = writeFile(path, "eins");
        QVERIFY(QFile::link(path, link));
        const QUrl alias = QUrl::fromLocalFile(link);
        manager.addFile(target);
        manager.addFile(alias);
        QCoro::waitFor(manager.waitUntilIdle());

        writeFile(path, "zwei");
        QTRY_COMPARE(manager.fileTexts().value(target), QStringLiteral("zwei"));
        QTRY_COMPARE(manager.fileTexts().value(alias), QStringLiteral("zwei"));
        QCoro::waitFor(manager.waitUntilIdle());

        const int before = inotifyWatches();
        manager.removeFile(alias);
        QCOMPARE(inotifyWatches(), before);
        writeFile(path, "drei");
        QTRY_COMPARE(manager.fileTexts().value(target), QStringLiteral("drei"));
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: 2)] for verweis.txt")), 1);
        manager.removeFile(target);
        QCOMPARE(inotifyWatches(), before - 1);
    }

    // A save that comes while the file's run is going is not lost: the run ends, then the file is processed
    // once more, and the knowledge ends at the last saved text.
    void savedWhileProcessing()
    {
        ContextManager manager(m_api);
        const QUrl url = writeFile(m_dir.filePath(QStringLiteral("laufend.txt")), "vorher");
        m_provider.setDefaultDelayMs(1500);
        manager.addFile(url);
        QTRY_COMPARE(countLog(QStringLiteral("🔢 Embedding batch 1/1...")), 1);
        writeFile(url.toLocalFile(), "nachher");
        QTRY_COMPARE(countLog(QStringLiteral("⏸️ processFile skipped (already processing): laufend.txt")),
                     1);
        m_provider.setDefaultDelayMs(0);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: laufend.txt")), 2);
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("nachher"));
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QVERIFY(manager.fileChunks(url).first().text.endsWith(QStringLiteral("nachher")));
    }

    // A reaction still waiting when the file is removed does nothing: no new watch, no run, no chunks.
    void removedFileStaysRemoved()
    {
        ContextManager manager(m_api);
        const QString path = m_dir.filePath(QStringLiteral("entfernt.txt"));
        const QUrl url = writeFile(path, "alt");
        manager.addFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        replaceByRename(path, "neu");
        QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for entfernt.txt")), 1);
        manager.removeFile(url);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("👁️ Started monitoring: entfernt.txt")), 1);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: entfernt.txt")), 1);
        QCOMPARE(manager.monitorCount(), 0);
        QVERIFY(manager.globalChunks().isEmpty());
        QVERIFY(manager.trackedFiles().isEmpty());
    }

    void replacedFiftyTimes()
    {
        ContextManager manager(m_api);
        const int before = inotifyWatches();
        const QString path = m_dir.filePath(QStringLiteral("hektisch.txt"));
        const QUrl url = writeFile(path, "Fassung 0");
        manager.addFile(url);
        for (int i = 1; i <= 50; ++i) {
            replaceByRename(path, "Fassung " + QByteArray::number(i));
            QTest::qWait(100);
        }
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.monitorCount(), 1);
        QCOMPARE(inotifyWatches(), before + 1);
        QVERIFY(manager.processingFiles().isEmpty());
        // Still followed afterwards: one more edit lands.
        writeFile(path, "Fassung final");
        QTRY_VERIFY(
            countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: 2)] for hektisch.txt")) >= 1);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("Fassung final"));
    }
};

QUILLMOOR_TEST_MAIN(TestFileMonitor)
#include "tst_filemonitor.moc"
