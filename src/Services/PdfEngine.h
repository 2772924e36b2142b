#pragma once

#include <QString>

#include <functional>
#include <optional>

// The PDF engine, a module of its own that is opened on the first PDF read rather than at start-up: the
// engine's library pulls in some twenty more (colour management, image codecs, cryptography), and most
// starts read no PDF at all. Any thread.
class PdfEngine {
public:
    // Called for each page in order with its text, or nothing for a page the engine could not make.
    using PageSink = std::function<void(std::optional<QString> text)>;

    // The page count, or nothing when the document cannot be opened or the engine is not there (see
    // loadError()).
    static std::optional<int> readPages(const QString &path, const PageSink &sink);

    // Empty once the engine is loaded; otherwise why it could not be (English, for the log).
    static QString loadError();
    // What a user is told when PDF files cannot be read because the engine is missing.
    static QString userMessage();

    // Where the module is looked for, first match wins: $QUILLMOOR_PDF_ENGINE when set, beside the program,
    // the installed place relative to the program, the build tree.
    static QStringList candidates();
};
