#pragma once

#include <QString>

#include <optional>

// The text of a PDF document, page after page; pages with nothing but white space are left out and
// every kept page ends with an empty line. Nothing for a document that cannot be opened (damaged
// beyond repair, or locked by a user password) or that has no text layer at all.
class PDFKitHelper {
public:
    static std::optional<QString> extractText(const QString &path);
};
