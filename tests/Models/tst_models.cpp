#include "Models/Message.h"
#include "TestMain.h"

#include <QBuffer>
#include <QImage>
#include <QImageReader>
#include <QtConcurrent>

namespace {
QByteArray png(const QSize &size)
{
    QImage picture(size, QImage::Format_ARGB32);
    picture.fill(QColor(10, 200, 30, 128));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "PNG");
    return bytes;
}
} // namespace

class TestModels : public QObject {
    Q_OBJECT
private slots:
    // Lists find a streamed message and a picture by identity and content, never by equal bytes.
    void equality()
    {
        const Message original(QStringLiteral("Hal"), false);
        Message streamed = original;
        streamed.appendText(QStringLiteral("lo"));
        QCOMPARE(streamed.id(), original.id());
        QVERIFY(!(streamed == original));
        QVERIFY(!(Message(QStringLiteral("Hal"), false) == original));

        const AttachmentType doc = AttachmentType::document(QUrl::fromLocalFile("/tmp/a.pdf"), "a.pdf");
        QVERIFY(!(Attachment(doc) == Attachment(doc)));
        const ImageRef first = ImageData::fromBytes(png({4, 4}));
        QVERIFY(AttachmentType::image(first) == AttachmentType::image(first));
        QVERIFY(!(AttachmentType::image(first) == AttachmentType::image(ImageData::fromBytes(png({4, 4})))));
    }

    void imageData()
    {
        QVERIFY(!ImageData::fromBytes("not a picture at all"));
        const QByteArray bytes = png({640, 480});
        const ImageRef image = ImageData::fromBytes(bytes);
        QVERIFY(image);
        QVERIFY(image->preview().width() <= 160 && image->preview().height() <= 160);
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

QUILLMOOR_TEST_MAIN(TestModels)
#include "tst_models.moc"
