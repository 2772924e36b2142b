#include "Models/Message.h"
#include "TestMain.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <QTemporaryDir>
#include <QtConcurrent>

class TestModels : public QObject {
    Q_OBJECT
private slots:
    void messageEquality()
    {
        Message original(QStringLiteral("Hal"), false);
        Message streamed = original;
        streamed.appendText(QStringLiteral("lo"));
        QCOMPARE(streamed.id(), original.id());
        QVERIFY(!(streamed == original)); // the text changed while streaming

        Message fresh(QStringLiteral("Hal"), false);
        QVERIFY(!(fresh == original)); // same text, another identity

        // Neither the author nor the time takes part.
        Message sameIdOtherAuthor = original;
        QVERIFY(sameIdOtherAuthor == original);
        QVERIFY(Message(QString(), true).attachments().isEmpty());
        QVERIFY(Message(QString(), true, {}).attachments() == QList<Attachment>());
    }

    void attachmentEquality()
    {
        const QUrl url = QUrl::fromLocalFile(QStringLiteral("/tmp/Bericht.pdf"));
        const AttachmentType doc = AttachmentType::document(url, QStringLiteral("Bericht.pdf"));
        QVERIFY(doc == AttachmentType::document(url, QStringLiteral("Bericht.pdf")));
        QVERIFY(!(doc == AttachmentType::document(url, QStringLiteral("anders.pdf"))));

        const Attachment a(doc);
        const Attachment b(doc);
        QVERIFY(!(a == b)); // same file, different identity
        QVERIFY(a == Attachment(a));

        QImage picture(4, 4, QImage::Format_RGB32);
        picture.fill(Qt::red);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        picture.save(&buffer, "PNG");
        const ImageRef first = ImageData::fromBytes(png);
        const ImageRef second = ImageData::fromBytes(png);
        QVERIFY(first && second);
        QVERIFY(AttachmentType::image(first) == AttachmentType::image(first));
        QVERIFY(
            !(AttachmentType::image(first) == AttachmentType::image(second))); // equal bytes, other object
        QVERIFY(!(AttachmentType::image(first) == doc));

        Message withAttachment(QStringLiteral("x"), true, {a});
        Message copy = withAttachment;
        copy.setAttachments({a, b});
        QVERIFY(!(copy == withAttachment));
    }

    void imageData()
    {
        QVERIFY(!ImageData::fromBytes("not a picture at all"));
        QImage picture(640, 480, QImage::Format_ARGB32);
        picture.fill(QColor(10, 200, 30, 128));
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        picture.save(&buffer, "PNG");
        const ImageRef image = ImageData::fromBytes(png);
        QVERIFY(image);
        QCOMPARE(image->size(), QSize(640, 480));
        QVERIFY(image->preview().width() <= 160 && image->preview().height() <= 160);
        const QByteArray jpeg = image->toJpeg();
        QVERIFY(jpeg.startsWith("\xFF\xD8"));
        QCOMPARE(QImage::fromData(jpeg, "JPEG").size(), QSize(640, 480)); // full size, no scaling

        // Converting on a worker thread leaves the process-wide decoding guard as the program set it.
        QImageReader::setAllocationLimit(300);
        QVERIFY(!QtConcurrent::run([image] { return image->toJpeg(); }).result().isEmpty());
        QCOMPARE(QImageReader::allocationLimit(), 300);
        ImageData::allowFullSizePhotos();

        QByteArray truncated = png.left(png.size() / 3);
        const ImageRef broken = ImageData::fromBytes(truncated);
        if (broken) // the header alone may pass; encoding what is there must not crash
            (void)broken->toJpeg();
    }
};

QUILLMOOR_TEST_MAIN(TestModels)
#include "tst_models.moc"
