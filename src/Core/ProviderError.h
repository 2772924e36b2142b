#pragma once

#include <QString>

// An error of the provider client: the client's own errors carry the domain "InfomaniakAPI"; errors of
// the transport keep their own domain, code and text so that they reach the user unchanged.
struct ProviderError {
    QString domain;
    int code = 0;
    QString description;

    static ProviderError api(int code, const QString &description)
    {
        return {QStringLiteral("InfomaniakAPI"), code, description};
    }

    // The full text form used on the console: domain, code and description.
    QString fullText() const
    {
        return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"")
            .arg(domain, QString::number(code), description);
    }

    bool operator==(const ProviderError &) const = default;
};
