#include "TextExtraction.h"

#include "Core/Console.h"
#include "Core/Graphemes.h"
#include "Core/SecurityScope.h"
#include "Services/PDFKitHelper.h"
#include "Services/XLSXHelper.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

namespace {

constexpr qsizetype AttachmentLimit = 30000;

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
    // Devices and pipes have no end we could trust; only regular files are read.
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    // Stateless, so that a sequence cut off at the end of the file counts as an error.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
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
    QString text = byExtension(path).value_or(QString());
    if (Graphemes::longerThan(text, AttachmentLimit)) {
        text = Graphemes::prefix(text, AttachmentLimit);
        text +=
            QStringLiteral("\n\n[... Text wurde gekürzt, da das Dokument zu lang für den Kontext ist ...]");
    }
    if (text.isEmpty())
        return std::nullopt;
    return text;
}
