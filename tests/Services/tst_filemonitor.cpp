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

// How editors save: a new file renamed over the old one, atomically, or after removing the old one.
void replaceByRename(const QString &path, const QByteArray &content, bool atomic = false)
{
    writeFile(path + QStringLiteral(".tmp"), content);
    if (!atomic)
        QFile::remove(path);
    QCOMPARE(std::rename(QFile::encodeName(path + QStringLiteral(".tmp")).constData(),
                         QFile::encodeName(path).constData()),
             0);
}

void idle(ContextManager &manager)
{
    QCoro::waitFor(manager.waitUntilIdle());
}

int events(int kind, const QString &name)
{
    return countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: %1)] for ").arg(kind) + name);
}
} // namespace

class TestFileMonitor : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    TestProvider m_provider;
    std::shared_ptr<const InfomaniakAPI> m_api;

    // A knowledge file, tracked and processed.
    QUrl track(ContextManager &manager, const QString &name, const QByteArray &content)
    {
        const QUrl url = writeFile(m_dir.filePath(name), content);
        manager.addFile(url);
        idle(manager);
        return url;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_provider.listen());
        m_api = clientFor(m_provider);
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
        const QUrl url = track(manager, QStringLiteral("inplace.txt"), "alt");
        writeFile(url.toLocalFile(), "neuer Inhalt");
        QTRY_COMPARE(events(2, QStringLiteral("inplace.txt")), 1);
        idle(manager);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: inplace.txt")), 2);
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("neuer Inhalt"));
    }

    // Saved the way editors do (a new file renamed over the old one), also while another program still
    // holds the old file open, when the kernel reports no deletion until that program closes it. The new
    // file is the one followed afterwards, and mere attribute changes are no events.
    void savedByRename_data()
    {
        QTest::addColumn<bool>("held");
        QTest::addRow("old file closed") << false;
        QTest::addRow("old file held open") << true;
    }
    void savedByRename()
    {
        QFETCH(bool, held);
        ContextManager manager(m_api);
        const QString name = held ? QStringLiteral("offen.txt") : QStringLiteral("atomar.txt");
        const QUrl url = track(manager, name, "erste Fassung");
        QFile holder(url.toLocalFile());
        QVERIFY(!held || holder.open(QIODevice::ReadOnly));
        replaceByRename(url.toLocalFile(), "zweite Fassung", held);
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("zweite Fassung"));
        idle(manager);
        QCOMPARE(countLog(QStringLiteral("👁️ Started monitoring: ") + name), 2);
        QCOMPARE(manager.monitorCount(), 1);

        QVERIFY(QFile::setPermissions(url.toLocalFile(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
        writeFile(url.toLocalFile(), "dritte Fassung");
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("dritte Fassung"));
        idle(manager);
        QCOMPARE(events(2, name), 1);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: ") + name), 3);
    }

    void deletionLeavesTheFileTracked()
    {
        ContextManager manager(m_api);
        const QUrl url = track(manager, QStringLiteral("weg.txt"), "bleibt im Wissen");
        QVERIFY(QFile::remove(url.toLocalFile()));
        QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for weg.txt")), 1);
        idle(manager);
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
        idle(manager);
        m_provider.setDefaultDelayMs(0);
        // The run that was under way still stores its results; the reaction to the deletion finds no text,
        // at once or, when it came while that run was going, in the run that follows it.
        QCOMPARE(countLog(QStringLiteral("✅ Processed: flüchtig.csv (3 chunks, 3 total)")), 1);
        QCOMPARE(countLog(QStringLiteral("⚠️ No text extracted from flüchtig.csv")), 1);
        QCOMPARE(manager.globalChunks().size(), 3);
        QVERIFY(manager.processingFiles().isEmpty());
    }

    // Two tracked paths that lead to one file share the kernel's watch: each hears the file's changes, and
    // removing one leaves the other watched.
    void pathsToTheSameFile()
    {
        ContextManager manager(m_api);
        const QString link = m_dir.filePath(QStringLiteral("verweis.txt"));
        const QUrl target = track(manager, QStringLiteral("ziel.txt"), "eins");
        QVERIFY(QFile::link(target.toLocalFile(), link));
        const QUrl alias = QUrl::fromLocalFile(link);
        manager.addFile(alias);
        idle(manager);

        writeFile(target.toLocalFile(), "zwei");
        QTRY_COMPARE(manager.fileTexts().value(target), QStringLiteral("zwei"));
        QTRY_COMPARE(manager.fileTexts().value(alias), QStringLiteral("zwei"));
        idle(manager);

        const int before = inotifyWatches();
        manager.removeFile(alias);
        QCOMPARE(inotifyWatches(), before);
        writeFile(target.toLocalFile(), "drei");
        QTRY_COMPARE(manager.fileTexts().value(target), QStringLiteral("drei"));
        idle(manager);
        QCOMPARE(events(2, QStringLiteral("verweis.txt")), 1);
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
        idle(manager);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: laufend.txt")), 2);
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("nachher"));
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QVERIFY(manager.fileChunks(url).first().text.endsWith(QStringLiteral("nachher")));
    }

    // A reaction still waiting when the file is removed does nothing: no new watch, no run, no chunks.
    void removedFileStaysRemoved()
    {
        ContextManager manager(m_api);
        const QUrl url = track(manager, QStringLiteral("entfernt.txt"), "alt");
        replaceByRename(url.toLocalFile(), "neu");
        QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for entfernt.txt")), 1);
        manager.removeFile(url);
        idle(manager);
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
        idle(manager);
        QCOMPARE(manager.monitorCount(), 1);
        QCOMPARE(inotifyWatches(), before + 1);
        QVERIFY(manager.processingFiles().isEmpty());
        // Still followed afterwards: one more edit lands.
        writeFile(path, "Fassung final");
        QTRY_VERIFY(events(2, QStringLiteral("hektisch.txt")) >= 1);
        idle(manager);
        QCOMPARE(manager.fileTexts().value(url), QStringLiteral("Fassung final"));
    }
};

QUILLMOOR_TEST_MAIN(TestFileMonitor)
#include "tst_filemonitor.moc"
