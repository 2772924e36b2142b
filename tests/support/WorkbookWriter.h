#pragma once

#include <QByteArrayList>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QStringList>

#include <zip.h>

#include <algorithm>
#include <utility>

// Writes ZIP containers for the workbook tests and benchmarks: real deflated entries through libzip.
namespace WorkbookWriter {

using Entries = QList<std::pair<QString, QByteArray>>;

inline bool writeZip(const QString &path, const Entries &entries)
{
    int error = 0;
    zip_t *archive = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!archive)
        return false;
    for (const auto &[name, bytes] : entries) {
        zip_source_t *source = zip_source_buffer(archive, bytes.constData(), zip_uint64_t(bytes.size()), 0);
        if (!source || zip_file_add(archive, name.toUtf8().constData(), source, ZIP_FL_ENC_UTF_8) < 0) {
            zip_source_free(source);
            zip_discard(archive);
            return false;
        }
    }
    return zip_close(archive) == 0; // the buffers are read here, while `entries` is still alive
}

inline QByteArray sheetXml(const QByteArray &rows)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
           "<worksheet xmlns=\"http://schemas.openxmlformats.org/spreadsheetml/2006/main\"><sheetData>" +
           rows + "</sheetData></worksheet>";
}

inline QByteArray sharedStringsXml(const QStringList &strings)
{
    QByteArray items;
    for (const QString &s : strings)
        items += "<si><t>" + s.toUtf8() + "</t></si>";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<sst>" + items + "</sst>";
}

// Worksheets sheet1.xml, sheet2.xml, … holding these rows, stored last first so that a reader has to sort
// them.
inline Entries workbook(const QByteArrayList &sheets)
{
    Entries entries;
    for (qsizetype i = sheets.size(); i > 0; --i)
        entries.append({QStringLiteral("xl/worksheets/sheet%1.xml").arg(i), sheetXml(sheets.at(i - 1))});
    return entries;
}

// The files under a folder, an unpacked workbook, named by their paths inside it and stored in reverse order
// of their names, so that a reader has to sort the sheets.
inline Entries unpacked(const QString &folder)
{
    Entries entries;
    QDirIterator files(folder, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        QFile file(files.next());
        if (file.open(QIODevice::ReadOnly))
            entries.append({QDir(folder).relativeFilePath(file.fileName()), file.readAll()});
    }
    std::sort(entries.rbegin(), entries.rend());
    return entries;
}

} // namespace WorkbookWriter
