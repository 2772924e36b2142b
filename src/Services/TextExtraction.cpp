#include "TextExtraction.h"

#include "Core/Console.h"
#include "Core/Graphemes.h"
#include "Core/SecurityScope.h"
#include "Services/PDFKitHelper.h"
#include "Services/XLSXHelper.h"

#include "Core/Utf8Decoder.h"

#include <QFile>
#include <QFileInfo>

namespace {

constexpr qsizetype AttachmentLimit = 30000;
const QString CutNote =
    QStringLiteral("\n\n[... Text wurde gekürzt, da das Dokument zu lang für den Kontext ist ...]");
// Bytes read at a time: a whole file is never in memory as bytes, only as its text.
constexpr qint64 PieceBytes = qint64(1) << 20;
// An attachment starts small: its 30,000 characters are most often within the first 100 KB.
constexpr qint64 FirstAttachmentPiece = qint64(64) << 10;

// Devices and pipes have no end we could trust; only regular files are read.
bool openRegularFile(QFile &file)
{
    return QFileInfo(file.fileName()).isFile() && file.open(QIODevice::ReadOnly);
}

// The first `limit` characters of a UTF-8 file and whether it has more, read piece by piece and no further
// than the character after the limit: the rest of the file is neither read nor checked. Nothing when the
// file cannot be read or what was read is not UTF-8.
std::optional<std::pair<QString, bool>> readUtf8Prefix(const QString &path, qsizetype limit)
{
    QFile file(path);
    if (!openRegularFile(file))
        return std::nullopt;
    Utf8Decoder decoder;
    Graphemes::Counter counter;
    QString text;
    QByteArray piece(FirstAttachmentPiece, Qt::Uninitialized);
    for (;;) {
        const qint64 n = file.read(piece.data(), piece.size());
        if (n < 0)
            return std::nullopt;
        if (n == 0)
            break;
        decoder.decode(QByteArrayView(piece.constData(), n), text);
        if (!decoder.isValid())
            return std::nullopt;
        const qsizetype before = counter.count();
        counter.advance(text, limit);
        if (counter.count() == limit && counter.offset() < text.size()) {
            text.truncate(counter.offset());
            return std::pair(std::move(text), true);
        }
        // A character still growing (a run of combining marks) is read in ever larger pieces, so its text
        // is counted through a bounded number of times.
        if (counter.count() == before && piece.size() < PieceBytes * 64)
            piece.resize(piece.size() * 2);
    }
    if (!decoder.isComplete())
        return std::nullopt;
    return std::pair(std::move(text), false);
}

qsizetype extensionDot(const QString &fileName)
{
    const qsizetype dot = fileName.lastIndexOf(QLatin1Char('.'));
    return dot <= 0 || dot == fileName.size() - 1 ? -1 : dot;
}

std::optional<QString> byExtension(const QString &path)
{
    const QString extension = TextExtraction::lowerExtension(QFileInfo(path).fileName());
    if (extension == QLatin1String("pdf"))
        return PDFKitHelper::extractText(path);
    if (extension == QLatin1String("xlsx"))
        return XLSXHelper::extractText(path);
    return TextExtraction::readUtf8(path);
}

} // namespace

QString TextExtraction::lowerExtension(const QString &fileName)
{
    const qsizetype dot = extensionDot(fileName);
    return dot < 0 ? QString() : fileName.mid(dot + 1).toLower();
}

QString TextExtraction::nameWithoutExtension(const QString &fileName)
{
    const qsizetype dot = extensionDot(fileName);
    return dot < 0 ? fileName : fileName.left(dot);
}

std::optional<QString> TextExtraction::readUtf8(const QString &path)
{
    QFile file(path);
    if (!openRegularFile(file))
        return std::nullopt;
    // A file's text has at most as many UTF-16 units as the file has bytes: one allocation, of which only
    // what the text uses is ever touched.
    QString text;
    text.reserve(file.size());
    Utf8Decoder decoder;
    QByteArray piece(PieceBytes, Qt::Uninitialized);
    for (;;) {
        const qint64 n = file.read(piece.data(), piece.size());
        if (n < 0)
            return std::nullopt;
        if (n == 0)
            break;
        decoder.decode(QByteArrayView(piece.constData(), n), text);
        if (!decoder.isValid())
            return std::nullopt;
    }
    if (!decoder.isComplete())
        return std::nullopt;
    return text;
}

std::optional<QString> TextExtraction::forKnowledge(const QString &path)
{
    const bool accessing = SecurityScope::startAccessing(path);
    Console::line(QStringLiteral("Extracting text from: ") + QFileInfo(path).fileName() +
                  QStringLiteral(" (accessing: ") +
                  (accessing ? QStringLiteral("true") : QStringLiteral("false")) + QLatin1Char(')'));
    return byExtension(path);
}

std::optional<QString> TextExtraction::forAttachment(const QString &path)
{
    SecurityScope::startAccessing(path);
    const QString extension = lowerExtension(QFileInfo(path).fileName());
    QString text;
    bool cut = false;
    if (extension == QLatin1String("pdf") || extension == QLatin1String("xlsx")) {
        text = byExtension(path).value_or(QString());
        cut = Graphemes::longerThan(text, AttachmentLimit);
        if (cut)
            text = Graphemes::prefix(text, AttachmentLimit);
    } else if (auto read = readUtf8Prefix(path, AttachmentLimit)) {
        std::tie(text, cut) = std::move(*read);
    }
    if (cut)
        text += CutNote;
    if (text.isEmpty())
        return std::nullopt;
    return text;
}
