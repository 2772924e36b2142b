#pragma once

#include <QObject>

// The process-wide notifications that connect windows and screens holding no reference to each other.
class Notifier : public QObject {
    Q_OBJECT
public:
    static Notifier &instance();

    static inline const QString ExpandFromMiniMode = QStringLiteral("ExpandFromMiniMode");
    static inline const QString OpenSettings = QStringLiteral("OpenSettings");
    static inline const QString ClearChatMemory = QStringLiteral("clearChatMemory");

    // Posts on the main thread, whatever thread calls it.
    Q_INVOKABLE void post(const QString &name);

signals:
    void posted(const QString &name);

private:
    Notifier() = default;
};
