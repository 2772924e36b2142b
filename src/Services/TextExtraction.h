#pragma once

#include <QString>

#include <optional>

// Turns one file into plain text, choosing the extractor by the lower-cased extension alone:
// "pdf" through the PDF engine, "xlsx" through the workbook reader, everything else as strict UTF-8.
namespace TextExtraction {

// The knowledge base's path: the whole text, however long; an empty file gives an empty text.
// Prints the "Extracting text from:" console line.
std::optional<QString> forKnowledge(const QString &path);

// The attachment path: cut at 30,000 characters with the German note; nothing when the text is empty.
std::optional<QString> forAttachment(const QString &path);

// The whole file as UTF-8; nothing when it cannot be read, is not a regular file or is not valid UTF-8.
std::optional<QString> readUtf8(const QString &path);

// The part of the file name after its last dot, lower-cased; empty when there is none
// (".profile" and "notes." have none).
QString lowerExtension(const QString &fileName);
// The file name without its last extension: "Bericht 2024.final.pdf" gives "Bericht 2024.final".
QString nameWithoutExtension(const QString &fileName);

} // namespace TextExtraction
