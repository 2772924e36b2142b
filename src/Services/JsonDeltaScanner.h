#pragma once

#include <QByteArrayView>
#include <QString>

// A single-pass reader of one stream event's JSON that validates the whole text and picks out the string at
// choices[0].delta.content. Anything it is not certain about (odd escapes, control characters, repeated
// keys on the path, deep nesting, invalid UTF-8, numbers that might not fit a double) it leaves to Qt's JSON
// parser by answering Unsure.
namespace JsonDeltaScanner {

enum class Outcome { Content, NoContent, Unsure };

struct Result {
    Outcome outcome = Outcome::Unsure;
    QString content;
};

Result scan(QByteArrayView json);

} // namespace JsonDeltaScanner
