#include "WorkbookArchive.h"

#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>

#include <zip.h>

namespace {

constexpr qint64 PieceBytes = qint64(256) << 10;

QString mebibytes(qint64 bytes)
{
    return QString::number(bytes >> 20) + QStringLiteral(" MiB");
}

QString tooLarge(const QString &name, qint64 limit)
{
    return QStringLiteral("The part ") + name + QStringLiteral(" unpacks to more than ") + mebibytes(limit);
}

QString tooDense(const QString &name, qint64 ratio)
{
    return QStringLiteral("The part ") + name + QStringLiteral(" is compressed more than ") +
           QString::number(ratio) + QStringLiteral(" to 1");
}

QString tooMuch(qint64 limit)
{
    return QStringLiteral("The archive unpacks to more than ") + mebibytes(limit);
}

} // namespace

WorkbookArchive::WorkbookArchive(const QString &path)
    : WorkbookArchive(path, Limits())
{
}

WorkbookArchive::WorkbookArchive(const QString &path, Limits limits)
    : m_limits(limits)
{
    const QFileInfo info(path);
    const QString name = info.fileName();
    if (!info.exists()) {
        m_fileError = QStringLiteral("The file “") + name +
                      QStringLiteral("” couldn’t be opened because there is no such file.");
        return;
    }
    if (info.isDir())
        return; // a folder is no workbook: it has no parts
    QFile probe(path);
    if (!probe.open(QIODevice::ReadOnly)) {
        m_fileError = QStringLiteral("The file “") + name + QStringLiteral("” couldn’t be opened: ") +
                      probe.errorString();
        return;
    }
    probe.close();
    int error = 0;
    m_zip = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &error);
    if (!m_zip && (error == ZIP_ER_OPEN || error == ZIP_ER_READ)) {
        zip_error_t description;
        zip_error_init_with_code(&description, error);
        m_fileError = QStringLiteral("The file “") + name + QStringLiteral("” couldn’t be read: ") +
                      QString::fromLocal8Bit(zip_error_strerror(&description));
        zip_error_fini(&description);
    }
    if (m_zip)
        checkDeclaredSizes();
}

WorkbookArchive::~WorkbookArchive()
{
    if (m_zip)
        zip_discard(m_zip);
}

// The central directory is checked before anything is inflated: a bomb is refused on its own word. Entries
// whose directory records lie are caught again while they are read.
void WorkbookArchive::checkDeclaredSizes()
{
    const zip_int64_t count = zip_get_num_entries(m_zip, 0);
    if (count > m_limits.maxEntries) {
        m_limitError = QStringLiteral("The archive holds more than ") + QString::number(m_limits.maxEntries) +
                       QStringLiteral(" entries");
        return;
    }
    qint64 total = 0;
    for (zip_int64_t i = 0; i < count; ++i) {
        zip_stat_t st;
        zip_stat_init(&st);
        if (zip_stat_index(m_zip, zip_uint64_t(i), 0, &st) != 0 || !(st.valid & ZIP_STAT_SIZE))
            continue;
        const QString name = QString::fromUtf8(st.name ? st.name : "");
        if (st.size > zip_uint64_t(m_limits.maxPartBytes)) {
            m_limitError = tooLarge(name, m_limits.maxPartBytes);
            return;
        }
        const qint64 size = qint64(st.size);
        if ((st.valid & ZIP_STAT_COMP_SIZE) && size > m_limits.ratioGraceBytes &&
            size / m_limits.maxRatio > qint64(st.comp_size)) {
            m_limitError = tooDense(name, m_limits.maxRatio);
            return;
        }
        total += size;
        if (total > m_limits.maxTotalBytes) {
            m_limitError = tooMuch(m_limits.maxTotalBytes);
            return;
        }
    }
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

std::unique_ptr<WorkbookArchive::Text> WorkbookArchive::open(const QString &name)
{
    return std::unique_ptr<Text>(new Text(this, name));
}

WorkbookArchive::Text::Text(WorkbookArchive *archive, const QString &name)
    : m_archive(archive)
    , m_name(name)
{
    if (!archive->m_zip || !archive->m_limitError.isEmpty())
        return;
    const zip_int64_t index = zip_name_locate(archive->m_zip, name.toUtf8().constData(), 0);
    if (index < 0)
        return;
    m_status = Status::Unreadable;
    zip_stat_t st;
    zip_stat_init(&st);
    if (zip_stat_index(archive->m_zip, zip_uint64_t(index), 0, &st) != 0 || !(st.valid & ZIP_STAT_SIZE) ||
        !(st.valid & ZIP_STAT_COMP_SIZE))
        return;
    m_declared = qint64(std::min<zip_uint64_t>(st.size, zip_uint64_t(archive->m_limits.maxPartBytes) + 1));
    m_packed = qint64(std::min<zip_uint64_t>(st.comp_size, zip_uint64_t(archive->m_limits.maxPartBytes)));
    m_file = zip_fopen_index(archive->m_zip, zip_uint64_t(index), 0);
    if (!m_file)
        return;
    m_status = Status::Ok;
    m_buffer.resize(PieceBytes);
}

WorkbookArchive::Text::~Text()
{
    if (m_file)
        zip_fclose(m_file);
}

void WorkbookArchive::Text::fail(Status status)
{
    m_status = status;
    if (m_file) {
        zip_fclose(m_file);
        m_file = nullptr;
    }
}

bool WorkbookArchive::Text::readMore(qsizetype chars)
{
    if (m_status != Status::Ok || m_atEnd)
        return false;
    const Limits &limits = m_archive->m_limits;
    const qsizetype wanted = m_held.size() + std::max<qsizetype>(chars, 1);
    const qsizetype before = m_held.size();
    while (m_held.size() < wanted) {
        const zip_int64_t n = zip_fread(m_file, m_buffer.data(), zip_uint64_t(m_buffer.size()));
        if (n < 0) {
            fail(Status::Unreadable);
            return false;
        }
        if (n == 0) {
            if (!m_decoder.isComplete()) {
                fail(Status::Unreadable); // ends inside a character
                return false;
            }
            m_atEnd = true;
            break;
        }
        m_inflated += n;
        m_archive->m_bytesRead += n;
        if (m_inflated > limits.maxPartBytes) {
            m_archive->m_limitError = tooLarge(m_name, limits.maxPartBytes);
        } else if (m_inflated > limits.ratioGraceBytes && m_inflated / limits.maxRatio > m_packed) {
            m_archive->m_limitError = tooDense(m_name, limits.maxRatio);
        } else if (m_archive->m_bytesRead > limits.maxTotalBytes) {
            m_archive->m_limitError = tooMuch(limits.maxTotalBytes);
        } else if (m_inflated > m_declared) {
            fail(Status::Unreadable); // more data than the directory admits to: a damaged or forged entry
            return false;
        }
        if (!m_archive->m_limitError.isEmpty()) {
            fail(Status::OverLimit);
            return false;
        }
        m_decoder.decode(QByteArrayView(m_buffer.constData(), n), m_held);
        if (!m_decoder.isValid()) {
            fail(Status::Unreadable);
            return false;
        }
        if (m_held.size() > limits.maxHeldChars) {
            m_archive->m_limitError = QStringLiteral("The part ") + m_name +
                                      QStringLiteral(" holds a row or element longer than ") +
                                      QString::number(limits.maxHeldChars >> 20) +
                                      QStringLiteral(" Mi characters");
            fail(Status::OverLimit);
            return false;
        }
    }
    if (m_atEnd && m_file) {
        zip_fclose(m_file);
        m_file = nullptr;
    }
    return m_held.size() > before;
}

void WorkbookArchive::Text::forget(qsizetype count)
{
    m_held.remove(0, std::min(count, m_held.size()));
}
