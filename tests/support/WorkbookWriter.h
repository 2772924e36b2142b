#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>

#include <zip.h>

#include <utility>

// Writes ZIP containers for the workbook tests and benchmarks: real deflated entries through libzip,
// and hand-made central directories for archives that libzip itself would never write.
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

inline QByteArray workbookXml(const QStringList &names)
{
    QByteArray sheets;
    for (qsizetype i = 0; i < names.size(); ++i)
        sheets += "<sheet name=\"" + names.at(i).toUtf8() + "\" sheetId=\"" + QByteArray::number(i + 1) +
                  "\" r:id=\"rId" + QByteArray::number(i + 1) + "\"/>";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<workbook><sheets>" + sheets + "</sheets></workbook>";
}

inline QByteArray sharedStringsXml(const QStringList &strings)
{
    QByteArray items;
    for (const QString &s : strings)
        items += "<si><t>" + s.toUtf8() + "</t></si>";
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<sst>" + items + "</sst>";
}

} // namespace WorkbookWriter
