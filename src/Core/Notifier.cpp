#include "Notifier.h"

#include <QCoreApplication>
#include <QThread>

Notifier &Notifier::instance()
{
    static Notifier *notifier = [] {
        auto *n = new Notifier;
        if (QCoreApplication::instance())
            n->moveToThread(QCoreApplication::instance()->thread());
        return n;
    }();
    return *notifier;
}

void Notifier::post(const QString &name)
{
    if (QThread::currentThread() == thread()) {
        emit posted(name);
        return;
    }
    QMetaObject::invokeMethod(
        this, [this, name] { emit posted(name); }, Qt::QueuedConnection);
}
