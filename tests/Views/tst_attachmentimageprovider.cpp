#include "AttachmentImageProvider.h"
#include "SessionFixture.h"
#include "TestMain.h"

#include <QImageReader>
#include <QtConcurrent>

#include <atomic>
#include <mutex>
#include <thread>

// Qt asks the provider for pictures on its image-loader thread while the main thread adds attachments,
// streams answers and clears the conversation. Run under ThreadSanitizer, this shows whether the loader
// touches anything the main thread changes.
class TestAttachmentImageProvider : public QObject {
    Q_OBJECT
private slots:
    void picturesInFlight()
    {
        SessionFixture f;
        f.provider.setDefaultDelayMs(1); // the unscripted answer streams word by word
        f.settings.setSelectedModel(QStringLiteral("qwen3"));
        ChatSession &session = *f.session;
        AttachmentImageProvider images(session);
        const auto idOf = [](const Attachment &attachment) {
            return attachment.id().toString(QUuid::WithoutBraces);
        };
        QStringList pictures;
        for (const QColor colour : {Qt::red, Qt::green, Qt::blue})
            pictures.append(
                TestEnvironment::writePicture(colour.name() + QStringLiteral(".png"), {320, 200}, colour));

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
                for (const QString &id : std::as_const(known)) { // no detach beside the appends
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

        for (int round = 0; round < 8; ++round) {
            for (const QString &picture : pictures)
                f.attach(picture);
            {
                std::lock_guard lock(idsMutex);
                for (const Attachment &attachment : session.pendingAttachments()->list())
                    ids.append(idOf(attachment));
            }
            if (round % 3 == 2)
                session.removePendingAttachment(0);
            f.send(QStringLiteral("Was siehst du auf Bild %1?").arg(round));
            QVERIFY(f.waitForTurn());
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
        for (const QString &id : std::as_const(ids) + shown) {
            QSize size;
            const QImage image = images.requestImage(id, &size, QSize());
            QCOMPARE(image.isNull(), !shown.contains(id));
        }
    }

    // A picture is sent at its full size, and only a picture's start encodes without a crash.
    void picturesAreSentWhole()
    {
        QFile file(TestEnvironment::writePicture(QStringLiteral("gross.png"), {640, 480}));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray bytes = file.readAll();
        const ImageRef image = ImageData::fromBytes(bytes);
        QVERIFY(image);
        QCOMPARE(QImage::fromData(image->toJpeg(), "JPEG").size(), QSize(640, 480)); // full size, no scaling

        // Converting on a worker thread leaves the process-wide decoding guard as the program set it.
        QImageReader::setAllocationLimit(300);
        QVERIFY(!QtConcurrent::run([image] { return image->toJpeg(); }).result().isEmpty());
        QCOMPARE(QImageReader::allocationLimit(), 300);
        ImageData::allowFullSizePhotos();

        if (const ImageRef broken = ImageData::fromBytes(bytes.left(bytes.size() / 3)))
            (void)broken->toJpeg(); // the header alone may pass; encoding what is there must not crash
    }
};

QUILLMOOR_TEST_MAIN(TestAttachmentImageProvider)
#include "tst_attachmentimageprovider.moc"
