#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Turns a workbook into the table text the row chunker reads: per worksheet a "[TABELLE: name]" line,
// then one tab-separated line per row that has values, then an empty line. The XML parts are searched
// with regular expressions, not parsed, so the text is exactly what those patterns find.
class XLSXHelper {
public:
    static std::optional<QString> extractText(const QString &path);

    // "%g" in the C locale, whatever the process locale is (six significant digits).
    static QString formatNumber(double value);
    // File-name order with digit runs compared by value: sheet2.xml before sheet10.xml.
    static void sortSheetFiles(QStringList &names);
};
