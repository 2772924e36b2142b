#pragma once

#include <QString>

#include <cstdio>

// The one place that writes the system's console lines. The app prints them on standard output;
// the command-line companion moves them to standard error so that stdout carries only the answer.
namespace Console {

void setStream(FILE *stream);
FILE *stream();

// Writes the text and a line break, flushed at once.
void line(const QString &text);
// Writes the text unchanged (the caller supplies any line break), flushed at once.
void write(const QString &text);

} // namespace Console
