#pragma once

#include "Core/Utf8Decoder.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

struct zip;
struct zip_file;

// Read-only access to the parts of a workbook's ZIP container, by relative path, each part read as text
// piece by piece. Archives are untrusted: like the most careful office-file readers, every entry must inflate
// at most 100 times its packed size (small entries aside), and entry count, entry size and the total are
// capped, so a small hostile file cannot make us allocate gigabytes or read forever.
class WorkbookArchive {
public:
    struct Limits {
        int maxEntries = 10000;
        qint64 maxPartBytes = qint64(1) << 30;  // one unpacked part
        qint64 maxTotalBytes = qint64(2) << 30; // all parts together, as declared and as read
        qint64 maxRatio = 100;                  // unpacked : packed
        qint64 ratioGraceBytes = 100 * 1024;    // parts up to this size may be packed as tightly as they like
        // The longest stretch of a part held at once (one row, one element and what follows it).
        qsizetype maxHeldChars = qsizetype(64) << 20;
    };

    enum class Status { Ok, Missing, Unreadable, OverLimit };

    // One part's text, decoded as it is inflated. The caller searches what has arrived, forgets what it is
    // done with and asks for more; nothing but the held stretch is in memory.
    class Text {
    public:
        ~Text();
        Text(const Text &) = delete;
        Text &operator=(const Text &) = delete;

        // Missing when there is no such part; Unreadable when it is damaged or not UTF-8; OverLimit when a
        // limit was hit (the archive's limitError() says which).
        Status status() const { return m_status; }
        // The whole part has arrived, and it was UTF-8 from beginning to end.
        bool atEnd() const { return m_atEnd; }
        // What has arrived and was not yet forgotten.
        const QString &held() const { return m_held; }
        // Appends at least `chars` more characters unless the part ends first; false when nothing more came
        // (the end, or a failure: see status()).
        bool readMore(qsizetype chars);
        // Forgets the first `count` held characters.
        void forget(qsizetype count);

    private:
        friend class WorkbookArchive;
        Text(WorkbookArchive *archive, const QString &name);
        void fail(Status status);

        WorkbookArchive *m_archive;
        QString m_name;
        zip_file *m_file = nullptr;
        qint64 m_declared = 0;
        qint64 m_packed = 0;
        qint64 m_inflated = 0;
        Utf8Decoder m_decoder;
        QByteArray m_buffer;
        QString m_held;
        Status m_status = Status::Missing;
        bool m_atEnd = false;
    };

    explicit WorkbookArchive(const QString &path);
    WorkbookArchive(const QString &path, Limits limits);
    ~WorkbookArchive();
    WorkbookArchive(const WorkbookArchive &) = delete;
    WorkbookArchive &operator=(const WorkbookArchive &) = delete;

    // False when the file is not a ZIP archive we can read; every part then counts as missing.
    bool isOpen() const { return m_zip != nullptr; }
    // Set when the file itself could not be read (missing, no permission). A file that can be read but is no
    // ZIP archive is no error: it simply has no parts.
    const QString &fileError() const { return m_fileError; }
    // Set once a limit was hit (on opening or reading); explains which one.
    const QString &limitError() const { return m_limitError; }
    const Limits &limits() const { return m_limits; }

    // The names directly inside `folder` (which ends with "/"), as a folder listing would show them.
    QStringList list(const QString &folder) const;
    std::unique_ptr<Text> open(const QString &name);

private:
    void checkDeclaredSizes();

    zip *m_zip = nullptr;
    Limits m_limits;
    qint64 m_bytesRead = 0;
    QString m_fileError;
    QString m_limitError;
};
