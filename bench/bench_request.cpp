// Building the chat request for one large photo: time and the memory it takes on top of the photo's bytes.
//   bench_request [MEGABYTES]   (default 20)
// The photo is made by a child process, so making it leaves no trace in this process's peak memory.
#include "BenchUtil.h"
#include "Services/ChatRequest.h"

#include <QBuffer>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QImageWriter>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <cmath>

namespace {

// A noisy photo compresses badly, so a JPEG of the wanted size needs about as many pixels as a real one.
QByteArray photoOfSize(qsizetype bytes)
{
    int edge = 1200;
    QByteArray jpeg;
    for (;;) {
        QImage image(edge * 4 / 3, edge, QImage::Format_RGB32);
        QRandomGenerator random(7);
        for (int y = 0; y < image.height(); ++y) {
            auto *line = reinterpret_cast<quint32 *>(image.scanLine(y));
            for (int x = 0; x < image.width(); ++x)
                line[x] = 0xff000000u | (random.generate() & 0x00ffffffu);
        }
        jpeg.clear();
        QBuffer buffer(&jpeg);
        buffer.open(QIODevice::WriteOnly);
        QImageWriter writer(&buffer, "jpeg");
        writer.setQuality(92);
        writer.write(image);
        if (jpeg.size() >= bytes)
            return jpeg;
        edge = int(edge * std::sqrt(double(bytes) / double(jpeg.size())) * 1.02) + 16;
    }
}

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    ImageData::allowFullSizePhotos();
    if (argc == 4 && QByteArray(argv[1]) == "--make") {
        QFile out(QString::fromLocal8Bit(argv[3]));
        out.open(QIODevice::WriteOnly);
        out.write(photoOfSize(qsizetype(std::atoi(argv[2])) * 1024 * 1024));
        return 0;
    }
    const int megabytes = argc > 1 ? std::atoi(argv[1]) : 20;
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("photo.jpg"));
    QProcess::execute(QCoreApplication::applicationFilePath(),
                      {QStringLiteral("--make"), QString::number(megabytes), path});
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 1;
    const QByteArray jpeg = file.readAll();
    const ImageRef image = ImageData::fromBytes(jpeg);
    if (!image) {
        std::printf("the generated photo does not decode\n");
        return 1;
    }
    const QList<Attachment> attachments{Attachment(AttachmentType::image(image))};
    const double before = Bench::currentRssMiB();
    // The peak counter only grows: the figure is the rise of the peak over the resident size before building.
    QElapsedTimer timer;
    timer.start();
    const ChatRequest::Body body = ChatRequest::build(QStringLiteral("qwen3"), QStringLiteral("System"), {},
                                                      QStringLiteral("Was ist auf dem Bild?"), attachments);
    const double seconds = timer.nsecsElapsed() / 1e9;
    const double peak = Bench::peakRssMiB();

    Bench::report(QStringLiteral("photo (JPEG) size"), jpeg.size() / 1048576.0, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("photo pixels"),
                  image->size().width() * double(image->size().height()) / 1e6, QStringLiteral("Mpx"));
    Bench::report(QStringLiteral("request body size"), body.json.size() / 1048576.0, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("time to build the request"), seconds * 1000.0, QStringLiteral("ms"));
    Bench::report(QStringLiteral("resident before building"), before, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("peak resident while building"), peak, QStringLiteral("MiB"));
    Bench::report(QStringLiteral("peak rise while building"), peak - before, QStringLiteral("MiB"));
    return body.imagesSent == 1 ? 0 : 1;
}
