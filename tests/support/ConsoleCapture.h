#pragma once

#include "Core/Console.h"

#include <QString>
#include <QStringList>

#include <cstdio>

#include <unistd.h>

// Collects the console lines written while it lives, so tests can check the system's own output.
class ConsoleCapture {
public:
    ConsoleCapture()
        : m_file(std::tmpfile())
    {
        Console::setStream(m_file);
    }
    ~ConsoleCapture()
    {
        Console::setStream(nullptr);
        std::fclose(m_file);
    }
    ConsoleCapture(const ConsoleCapture &) = delete;
    ConsoleCapture &operator=(const ConsoleCapture &) = delete;

    QString text() const
    {
        std::fflush(m_file);
        QByteArray bytes(std::ftell(m_file), '\0');
        // Read beside the stream, whose position stays where the next line goes.
        bytes.truncate(qMax(ssize_t(0), ::pread(fileno(m_file), bytes.data(), size_t(bytes.size()), 0)));
        return QString::fromUtf8(bytes);
    }
    QStringList lines() const { return text().split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
    bool contains(const QString &line) const { return lines().contains(line); }

private:
    FILE *m_file;
};
