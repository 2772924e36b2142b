#include "HelpTipWindow.h"

#include "Core/WindowGeometry.h"

#include <QQuickItem>
#include <QScreen>

HelpTipWindow::HelpTipWindow(QQmlEngine *engine)
    : QQuickView(engine, nullptr)
{
    setFlags(Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus |
             Qt::WindowTransparentForInput);
    setResizeMode(QQuickView::SizeRootObjectToView);
    setSource(QUrl(QStringLiteral("qrc:/qt/qml/Quillmoor/HelpTipView.qml")));
}

QString HelpTipWindow::text() const
{
    const QQuickItem *root = rootObject();
    return root ? root->property("text").toString() : QString();
}

void HelpTipWindow::showBeside(const QRect &anchor, const QString &text)
{
    QQuickItem *root = rootObject();
    if (!root)
        return;
    root->setProperty("text", text);
    setTitle(text);
    const QSize size(qCeil(root->implicitWidth()), qCeil(root->implicitHeight()));
    const QScreen *target = screen();
    const QRect area = target ? target->availableGeometry() : QRect(anchor.topLeft(), size);
    setGeometry(WindowGeometry::helpTipFrameFor(anchor, size, area));
    show();
}
