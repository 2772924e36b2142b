#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

struct zip;

// Read-only access to the parts of a workbook's ZIP container, in memory and by relative path.
// Archives are untrusted: every part is unpacked against limits that no genuine workbook comes near,
// so a small hostile file cannot make us allocate gigabytes.
class WorkbookArchive {
public:
    struct Limits {
        qint64 maxPartBytes = qint64(1) << 30;  // one unpacked part
        qint64 maxTotalBytes = qint64(2) << 30; // all parts together, as declared and as read
        qint64 maxRatio = 200;                  // unpacked : packed, for parts above ratioFloorBytes
        qint64 ratioFloorBytes = qint64(16) << 20;
    };

    enum class Status { Ok, Missing, Unreadable, OverLimit };

    struct Part {
        Status status = Status::Missing;
        QByteArray bytes;
    };

    explicit WorkbookArchive(const QString &path);
    WorkbookArchive(const QString &path, Limits limits);
    ~WorkbookArchive();
    WorkbookArchive(const WorkbookArchive &) = delete;
    WorkbookArchive &operator=(const WorkbookArchive &) = delete;

    // False when the file is not a ZIP archive we can read; every part then counts as missing.
    bool isOpen() const { return m_zip != nullptr; }
    // Set once a limit was hit (on opening or reading); explains which one.
    const QString &limitError() const { return m_limitError; }

    // The names directly inside `folder` (which ends with "/"), as a folder listing would show them.
    QStringList list(const QString &folder) const;
    Part read(const QString &name);

private:
    bool checkDeclaredSizes();

    zip *m_zip = nullptr;
    Limits m_limits;
    qint64 m_bytesRead = 0;
    QString m_limitError;
};
