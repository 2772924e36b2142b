#pragma once

#include <QString>
#include <QStringView>

// What one line of the answer stream means: nothing, the next piece of the answer, or the end marker.
struct StreamEvent {
    enum class Kind { Ignore, Piece, Done };
    Kind kind = Kind::Ignore;
    QString content;

    // Only "data: " lines count; their JSON must hold a string at choices[0].delta.content.
    static StreamEvent parse(const QString &line);
};
