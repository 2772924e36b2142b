#pragma once

#include "Core/Console.h"

#include <QString>
#include <QStringList>

#include <cstdio>

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
        const long size = std::ftell(m_file);
        QByteArray bytes(size, '\0');
        std::rewind(m_file);
        const size_t read = std::fread(bytes.data(), 1, size_t(size), m_file);
        std::fseek(m_file, 0, SEEK_END);
        return QString::fromUtf8(bytes.left(qsizetype(read)));
    }
    QStringList lines() const { return text().split(QLatin1Char('\n'), Qt::SkipEmptyParts); }
    bool contains(const QString &line) const { return lines().contains(line); }

private:
    FILE *m_file;
};
