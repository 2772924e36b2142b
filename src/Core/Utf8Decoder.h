#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringDecoder>

// Strict UTF-8 that arrives in pieces: a character cut between two pieces is joined, a byte order mark at
// the very start is skipped, and input that stops inside a character is not valid UTF-8.
class Utf8Decoder : private QStringDecoder {
public:
    Utf8Decoder()
        : QStringDecoder(QStringDecoder::Utf8)
    {
    }

    // Appends the text of the next piece to `out`, growing it as needed.
    void decode(QByteArrayView piece, QString &out);
    // False once the bytes so far are not UTF-8.
    bool isValid() const { return !hasError(); }
    // True when all bytes so far were UTF-8 and the last one ended a character.
    bool isComplete() const { return !hasError() && state.remainingChars == 0; }
};
