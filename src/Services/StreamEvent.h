#pragma once

#include <QByteArrayView>
#include <QString>

// What one line of the answer stream means: nothing, the next piece of the answer, or the end marker.
struct StreamEvent {
    enum class Kind { Ignore, Piece, Done };
    Kind kind = Kind::Ignore;
    QString content;

    // Only "data: " lines count; their JSON must hold a string at choices[0].delta.content.
    static StreamEvent parse(QByteArrayView line);
    // The same, with a piece's text appended to `text`: a reader of many events fills one text.
    static Kind read(QByteArrayView line, QString &text);
    // The same decision made through Qt's JSON document: the reference the fast reader is held to, and its
    // fallback for anything unusual.
    static StreamEvent parseWithDocument(QByteArrayView line);
};
