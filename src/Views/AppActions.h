#pragma once

#include <QObject>
#include <QQmlEngine>

// What the header bar's menu does, for any window that shows it.
class AppActions : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
public:
    using QObject::QObject;

    Q_INVOKABLE void openSettings();
    Q_INVOKABLE void quit();
};
