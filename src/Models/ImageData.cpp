#include "ImageData.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QImageWriter>

namespace {
constexpr int PreviewEdge = 160;
// Beyond this a file is no picture we take: the largest photos of real cameras are far smaller.
constexpr qint64 MaxFileBytes = qint64(512) << 20;
} // namespace

void ImageData::allowFullSizePhotos()
{
    QImageReader::setAllocationLimit(DecodeLimitMB);
}

std::shared_ptr<const ImageData> ImageData::load(const QString &path)
{
    // Whether the file is a picture at all is decided by its header: a large file that merely carries a
    // picture's extension is never read whole. Devices and pipes are not pictures.
    QFile file(path);
    if (!QFileInfo(path).isFile() || file.size() > MaxFileBytes || !file.open(QIODevice::ReadOnly))
        return nullptr;
    {
        QImageReader header(&file);
        if (!header.canRead())
            return nullptr;
    }
    if (!file.seek(0))
        return nullptr;
    return fromBytes(file.readAll());
}

std::shared_ptr<const ImageData> ImageData::fromBytes(const QByteArray &bytes)
{
    QByteArray data = bytes;
    QBuffer buffer(&data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (!reader.canRead() || !size.isValid() || size.isEmpty())
        return nullptr;
    // Decoding a scaled preview proves the picture is readable without holding it whole in memory.
    QSize scaled = size;
    if (scaled.width() > PreviewEdge || scaled.height() > PreviewEdge)
        scaled.scale(PreviewEdge, PreviewEdge, Qt::KeepAspectRatio);
    reader.setScaledSize(scaled.expandedTo(QSize(1, 1)));
    QImage preview = reader.read();
    if (preview.isNull())
        return nullptr;
    auto image = std::make_shared<ImageData>();
    image->m_bytes = bytes;
    image->m_size = size;
    image->m_preview = std::move(preview);
    return image;
}

QByteArray ImageData::toJpeg() const
{
    QByteArray data = m_bytes;
    QBuffer in(&data);
    in.open(QIODevice::ReadOnly);
    QImageReader reader(&in);
    reader.setAutoTransform(true);
    QImage image = reader.read();
    if (image.isNull())
        return {};
    if (image.hasAlphaChannel())
        image = image.convertToFormat(QImage::Format_RGB32);
    QByteArray jpeg;
    QBuffer out(&jpeg);
    out.open(QIODevice::WriteOnly);
    QImageWriter writer(&out, "jpeg");
    writer.setQuality(70);
    if (!writer.write(image))
        return {};
    return jpeg;
}
