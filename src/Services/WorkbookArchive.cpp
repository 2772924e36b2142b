#include "WorkbookArchive.h"

#include <QFile>
#include <QSet>

#include <algorithm>

#include <zip.h>

namespace {

constexpr qint64 ChunkBytes = qint64(1) << 20;
constexpr qint64 MaxReserveBytes = qint64(64) << 20;

QString mebibytes(qint64 bytes)
{
    return QString::number(bytes >> 20) + QStringLiteral(" MiB");
}

} // namespace

WorkbookArchive::WorkbookArchive(const QString &path)
    : WorkbookArchive(path, Limits())
{
}

WorkbookArchive::WorkbookArchive(const QString &path, Limits limits)
    : m_limits(limits)
{
    int error = 0;
    m_zip = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &error);
    if (m_zip)
        checkDeclaredSizes();
}

WorkbookArchive::~WorkbookArchive()
{
    if (m_zip)
        zip_discard(m_zip);
}

// The central directory is checked before anything is inflated: a bomb is refused on its own word.
// Parts whose directory entries lie are caught again while they are read.
bool WorkbookArchive::checkDeclaredSizes()
{
    const zip_int64_t count = zip_get_num_entries(m_zip, 0);
    qint64 total = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t st;
        zip_stat_init(&st);
        if (zip_stat_index(m_zip, zip_uint64_t(i), 0, &st) != 0 || !(st.valid & ZIP_STAT_SIZE))
            continue;
        const QString name = QString::fromUtf8(st.name ? st.name : "");
        const qint64 size =
            st.size > zip_uint64_t(m_limits.maxTotalBytes) ? m_limits.maxTotalBytes + 1 : qint64(st.size);
        if (size > m_limits.maxPartBytes) {
            m_limitError = QStringLiteral("The part %1 unpacks to more than %2")
                               .arg(name, mebibytes(m_limits.maxPartBytes));
            return false;
        }
        if ((st.valid & ZIP_STAT_COMP_SIZE) && size > m_limits.ratioFloorBytes &&
            size / m_limits.maxRatio > qint64(st.comp_size)) {
            m_limitError = QStringLiteral("The part %1 is compressed more than %2 to 1")
                               .arg(name, QString::number(m_limits.maxRatio));
            return false;
        }
        total += size;
        if (total > m_limits.maxTotalBytes) {
            m_limitError =
                QStringLiteral("The archive unpacks to more than %1").arg(mebibytes(m_limits.maxTotalBytes));
            return false;
        }
    }
    return true;
}

QStringList WorkbookArchive::list(const QString &folder) const
{
    QStringList names;
    if (!m_zip)
        return names;
    QSet<QString> seen;
    const zip_int64_t count = zip_get_num_entries(m_zip, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char *raw = zip_get_name(m_zip, zip_uint64_t(i), 0);
        if (!raw)
            continue;
        const QString entry = QString::fromUtf8(raw);
        if (!entry.startsWith(folder))
            continue;
        // Deeper entries still make their first folder appear in the listing.
        const QString child = entry.mid(folder.size()).section(QLatin1Char('/'), 0, 0);
        if (!child.isEmpty() && !seen.contains(child)) {
            seen.insert(child);
            names.append(child);
        }
    }
    return names;
}

WorkbookArchive::Part WorkbookArchive::read(const QString &name)
{
    Part part;
    if (!m_zip || !m_limitError.isEmpty())
        return part;
    const QByteArray utf8 = name.toUtf8();
    const zip_int64_t index = zip_name_locate(m_zip, utf8.constData(), 0);
    if (index < 0)
        return part;
    part.status = Status::Unreadable;
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_stat_index(m_zip, zip_uint64_t(index), 0, &st) != 0 || !(st.valid & ZIP_STAT_SIZE))
        return part;
    const qint64 declared = qint64(std::min<zip_uint64_t>(st.size, zip_uint64_t(m_limits.maxPartBytes) + 1));
    zip_file_t *file = zip_fopen_index(m_zip, zip_uint64_t(index), 0);
    if (!file)
        return part;

    QByteArray bytes;
    bytes.reserve(std::min(declared, MaxReserveBytes));
    QByteArray chunk(ChunkBytes, Qt::Uninitialized);
    bool ok = true;
    for (;;) {
        const zip_int64_t n = zip_fread(file, chunk.data(), zip_uint64_t(chunk.size()));
        if (n < 0) {
            ok = false;
            break;
        }
        if (n == 0)
            break;
        m_bytesRead += n;
        if (bytes.size() + n > m_limits.maxPartBytes) {
            m_limitError = QStringLiteral("The part %1 unpacks to more than %2")
                               .arg(name, mebibytes(m_limits.maxPartBytes));
            break;
        }
        if (m_bytesRead > m_limits.maxTotalBytes) {
            m_limitError =
                QStringLiteral("The archive unpacks to more than %1").arg(mebibytes(m_limits.maxTotalBytes));
            break;
        }
        if (bytes.size() + n > declared) {
            ok = false; // more data than the directory admits to: a damaged or forged entry
            break;
        }
        bytes.append(chunk.constData(), n);
    }
    zip_fclose(file);
    if (!m_limitError.isEmpty()) {
        part.status = Status::OverLimit;
        return part;
    }
    if (ok) {
        part.status = Status::Ok;
        part.bytes = std::move(bytes);
    }
    return part;
}
