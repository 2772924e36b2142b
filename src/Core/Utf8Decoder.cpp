#include "Utf8Decoder.h"

void Utf8Decoder::decode(QByteArrayView piece, QString &out)
{
    const qsizetype before = out.size();
    // Resizing past the capacity grows it geometrically, so a text decoded piece by piece is not copied
    // again and again; the unused part is given back below.
    out.resize(before + requiredSpace(piece.size()));
    const QChar *end = appendToBuffer(out.data() + before, piece);
    out.truncate(end - out.constData());
}
