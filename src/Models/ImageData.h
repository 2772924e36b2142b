#pragma once

#include <QByteArray>
#include <QImage>
#include <QSize>
#include <QString>

#include <memory>

// A dropped picture, held as the bytes of its file: decoding a large photo in full is left to the moment
// it is sent (off the UI thread), while the chat screen shows the small preview made on intake.
class ImageData {
public:
    // A full-size photo of 40 MB decodes to several hundred megabytes, past Qt's default guard of 256 MB.
    static constexpr int DecodeLimitMB = 2048;
    // Raises Qt's decoding guard to that. The guard is one setting for the whole process, so every program
    // that sends pictures calls this once at start-up, before any thread decodes.
    static void allowFullSizePhotos();

    // Reads and checks the file; nothing when it cannot be read as an image. Its header decides: nothing
    // else of a file that is no picture (or of one over 512 MiB) is read.
    static std::shared_ptr<const ImageData> load(const QString &path);
    static std::shared_ptr<const ImageData> fromBytes(const QByteArray &bytes);

    const QByteArray &bytes() const { return m_bytes; }
    QSize size() const { return m_size; }
    const QImage &preview() const { return m_preview; }

    // The whole picture as JPEG at quality 70; empty when it cannot be decoded or encoded.
    QByteArray toJpeg() const;

private:
    QByteArray m_bytes;
    QSize m_size;
    QImage m_preview;
};

using ImageRef = std::shared_ptr<const ImageData>;
