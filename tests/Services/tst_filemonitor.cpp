#include "KnowledgeTestUtil.h"

#include <QDir>

#include <cstdio>

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
void replaceByRename(const QUrl &url, const QByteArray &content, bool atomic = false)
{
    const QString temporary = writeFile(url.fileName() + QStringLiteral(".tmp"), content).toLocalFile();
    if (!atomic)
        QFile::remove(url.toLocalFile());
    QCOMPARE(std::rename(QFile::encodeName(temporary).constData(),
                         QFile::encodeName(url.toLocalFile()).constData()),
             0);
}

int events(int kind, const QString &name)
{
    return countLog(QStringLiteral("🔔 File event [FileSystemEvent(rawValue: %1)] for ").arg(kind) + name);
}
} // namespace

class TestFileMonitor : public QObject, Fixture {
    Q_OBJECT

private slots:
    // Saved the way editors do (a new file renamed over the old one) while another program still holds the
    // old file open, when the kernel reports no deletion until that program closes it. The new file is the
    // one followed afterwards: a write in place lands, and mere attribute changes are no events. (A rename
    // after removing the old file is the fifty-saves case.)
    void savedByRenameWhileHeldOpen()
    {
        ContextManager manager(api);
        const QUrl url = track(manager, QStringLiteral("offen.txt"), "erste Fassung");
        QFile holder(url.toLocalFile());
        QVERIFY(holder.open(QIODevice::ReadOnly));
        replaceByRename(url, "zweite Fassung", true);
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("zweite Fassung"));
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("👁️ Started monitoring: offen.txt")), 2);
        QCOMPARE(manager.monitorCount(), 1);

        QVERIFY(QFile::setPermissions(url.toLocalFile(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
        writeFile(QStringLiteral("offen.txt"), "dritte Fassung");
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("dritte Fassung"));
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(events(2, QStringLiteral("offen.txt")), 1);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: offen.txt")), 3);
    }

    // A change is never lost: a save or a deletion that comes while the file's run is going is processed
    // once more when that run ends, so the knowledge ends at the last saved text. A deleted file stays
    // tracked with its last text and chunks, unwatched.
    void changes_data()
    {
        QTest::addColumn<bool>("deleted");
        QTest::addColumn<bool>("running");
        QTest::addRow("saved while processing") << false << true;
        QTest::addRow("deleted while processing") << true << true;
        QTest::addRow("deleted") << true << false;
    }
    void changes()
    {
        QFETCH(bool, deleted);
        QFETCH(bool, running);
        ContextManager manager(api);
        const QString name = QString::fromLatin1(QTest::currentDataTag()) + QStringLiteral(".txt");
        const QUrl url = writeFile(name, "vorher");
        provider.setDefaultDelayMs(running ? 1500 : 0);
        manager.addFile(url);
        QTRY_COMPARE(countLog(QStringLiteral("🔢 Embedding batch 1/1...")), 1);
        if (!running)
            QCoro::waitFor(manager.waitUntilIdle());
        if (deleted)
            QVERIFY(QFile::remove(url.toLocalFile()));
        else
            writeFile(name, "nachher");
        QTRY_COMPARE(countLog(QStringLiteral("⏸️ processFile skipped (already processing): ") + name),
                     int(running));
        if (deleted)
            QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for ") + name), 1);
        provider.setDefaultDelayMs(0);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: ") + name), 2);
        QCOMPARE(countLog(QStringLiteral("⚠️ No text extracted from ") + name), int(deleted));
        const QString last = deleted ? QStringLiteral("vorher") : QStringLiteral("nachher");
        QCOMPARE(manager.fileTexts().value(url), last);
        QCOMPARE(manager.fileChunks(url).size(), 1);
        QVERIFY(manager.fileChunks(url).first().text.endsWith(last));
        QCOMPARE(manager.trackedFiles(), QList<QUrl>{url});
        QCOMPARE(manager.monitorCount(), int(!deleted));
        QVERIFY(manager.processingFiles().isEmpty());
    }

    // Two tracked paths that lead to one file share the kernel's watch: each hears the file's changes, and
    // removing one leaves the other watched. A removed file stays removed, also when it was just replaced.
    void pathsToTheSameFile()
    {
        ContextManager manager(api);
        const QUrl target = track(manager, QStringLiteral("ziel.txt"), "eins");
        const QUrl alias =
            QUrl::fromLocalFile(TestEnvironment::home().filePath(QStringLiteral("verweis.txt")));
        QVERIFY(QFile::link(target.toLocalFile(), alias.toLocalFile()));
        manager.addFile(alias);
        QCoro::waitFor(manager.waitUntilIdle());

        writeFile(QStringLiteral("ziel.txt"), "zwei");
        QTRY_COMPARE(manager.fileTexts().value(target), QStringLiteral("zwei"));
        QTRY_COMPARE(manager.fileTexts().value(alias), QStringLiteral("zwei"));
        QCoro::waitFor(manager.waitUntilIdle());

        const int before = inotifyWatches();
        manager.removeFile(alias);
        QCOMPARE(inotifyWatches(), before);
        writeFile(QStringLiteral("ziel.txt"), "drei");
        QTRY_COMPARE(manager.fileTexts().value(target), QStringLiteral("drei"));
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(events(2, QStringLiteral("verweis.txt")), 1);
        // A reaction still waiting when the file is removed does nothing: no new watch, no run.
        replaceByRename(target, "vier");
        QTRY_COMPARE(countLog(QStringLiteral("♻️ Restarting monitor for ziel.txt")), 1);
        manager.removeFile(target);
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(inotifyWatches(), before - 1);
        QCOMPARE(countLog(QStringLiteral("👁️ Started monitoring: ziel.txt")), 1);
        QCOMPARE(countLog(QStringLiteral("🔄 processFile starting: ziel.txt")), 3);
    }

    void replacedFiftyTimes()
    {
        ContextManager manager(api);
        const int before = inotifyWatches();
        const QUrl url = writeFile(QStringLiteral("hektisch.txt"), "Fassung 0");
        manager.addFile(url);
        for (int i = 1; i <= 50; ++i) {
            replaceByRename(url, "Fassung " + QByteArray::number(i));
            QTest::qWait(100);
        }
        QCoro::waitFor(manager.waitUntilIdle());
        QCOMPARE(manager.monitorCount(), 1);
        QCOMPARE(inotifyWatches(), before + 1);
        // Still followed afterwards: one more edit lands.
        writeFile(QStringLiteral("hektisch.txt"), "Fassung final");
        QTRY_COMPARE(manager.fileTexts().value(url), QStringLiteral("Fassung final"));
    }
};

QUILLMOOR_TEST_MAIN(TestFileMonitor)
#include "tst_filemonitor.moc"
