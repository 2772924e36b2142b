#include "AppSettings.h"
#include "AttachmentImageProvider.h"
#include "Chat/ChatSession.h"
#include "ProviderClient.h"
#include "Services/ContextManager.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QImage>
#include <QSignalSpy>

#include <qcoro/qcorotask.h>

#include <atomic>
#include <mutex>
#include <thread>

namespace {

QString writePicture(const QString &name, const QColor &colour)
{
    const QString path = TestEnvironment::home().filePath(name);
    QImage picture(320, 200, QImage::Format_RGB32);
    picture.fill(colour);
    picture.save(path, "PNG");
    return path;
}

QString idOf(const Attachment &attachment)
{
    return attachment.id().toString(QUuid::WithoutBraces);
}

} // namespace

// Qt asks the provider for pictures on its image-loader thread while the main thread adds attachments,
// streams answers and clears the conversation. Run under ThreadSanitizer, this shows whether the loader
// touches anything the main thread changes.
class TestAttachmentImageProvider : public QObject {
    Q_OBJECT
private slots:
    void picturesInFlight()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        provider.setDefaultDelayMs(1); // the unscripted answer streams word by word
        AppSettings settings;
        settings.setSelectedModel(QStringLiteral("qwen3"));
        ContextManager knowledge(clientFor(provider));
        ChatSession session(knowledge, settings);
        AttachmentImageProvider images(session);

        const QStringList pictures{writePicture(QStringLiteral("rot.png"), Qt::red),
                                   writePicture(QStringLiteral("gruen.png"), Qt::green),
                                   writePicture(QStringLiteral("blau.png"), Qt::blue)};

        std::mutex idsMutex; // a standard one, so ThreadSanitizer sees the hand-over
        QStringList ids;
        std::atomic<bool> stop{false};
        std::atomic<int> served{0};
        std::atomic<int> wrongSize{0};
        std::thread loader([&] {
            while (!stop) {
                QStringList known;
                {
                    std::lock_guard lock(idsMutex);
                    known = ids;
                }
                for (const QString &id : known) {
                    QSize size;
                    const QImage image = images.requestImage(id, &size, QSize(80, 50));
                    if (image.isNull())
                        continue;
                    ++served;
                    if (size != QSize(160, 100) || image.size() != QSize(80, 50))
                        ++wrongSize;
                }
            }
        });

        QSignalSpy finished(&session, &ChatSession::turnFinished);
        for (int round = 0; round < 8; ++round) {
            for (const QString &picture : pictures)
                QCoro::waitFor(session.addAttachmentAsync(QUrl::fromLocalFile(picture)));
            {
                std::lock_guard lock(idsMutex);
                for (const Attachment &attachment : session.pendingAttachments()->list())
                    ids.append(idOf(attachment));
            }
            if (round % 3 == 2)
                session.removePendingAttachment(0);
            session.setInputText(QStringLiteral("Was siehst du auf Bild %1?").arg(round));
            session.sendMessage();
            QVERIFY(finished.wait(10000));
            if (round % 2 == 0)
                session.clearMessages();
        }
        session.addAttachment(QUrl::fromLocalFile(pictures.first()));
        QTRY_COMPARE(session.pendingAttachments()->size(), 1);
        stop = true;
        loader.join();
        QVERIFY(served > 0);
        QCOMPARE(wrongSize.load(), 0);

        // What the conversation and the pending strip still show is served; everything else is gone.
        QStringList shown{idOf(session.pendingAttachments()->list().first())};
        for (const Message &message : session.messages()->list())
            for (const Attachment &attachment : message.attachments())
                shown.append(idOf(attachment));
        QCOMPARE(shown.size(), 1 + 3);
        for (const QString &id : std::as_const(ids) + shown) {
            QSize size;
            const QImage image = images.requestImage(id, &size, QSize());
            QCOMPARE(image.isNull(), !shown.contains(id));
        }
    }
};

QUILLMOOR_TEST_MAIN(TestAttachmentImageProvider)
#include "tst_attachmentimageprovider.moc"
