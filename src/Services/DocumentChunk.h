#pragma once

#include <QList>
#include <QString>

// One chunk of a knowledge file with its embedding vector.
struct DocumentChunk {
    QString text;
    QList<double> embedding;

    bool operator==(const DocumentChunk &) const = default;
};
