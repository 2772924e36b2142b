#pragma once

#include <QQuickView>
#include <QRect>
#include <QVariantMap>

class QQmlEngine;

// A frameless window above all others and off the task bar, whose QML content draws rounded glass and its
// own shadow. Where a compositor blends the shadow, the native window is larger than the glass by a
// margin on every side and only the glass takes the mouse; without one the glass is the window. The rest
// of the shell thinks in glass frames.
class GlassWindow : public QQuickView {
    Q_OBJECT
public:
    static constexpr int ShadowMargin = 28;
    static constexpr qreal CornerRadius = 16;

    // Frameless, above other windows, off the task bar, and see-through where nothing is drawn.
    static void makeFloating(QQuickView *view);

    GlassWindow(QQmlEngine *engine, const QUrl &source, QVariantMap properties, QWindow *parent = nullptr);

    // The glass's frame on the screen.
    QRect contentFrame() const;
    void setContentFrame(const QRect &frame);
    // Places the glass in the middle of the visible area of the window's screen.
    void center();
    // The margin around the glass: ShadowMargin with a compositor, 0 without.
    int shadowMargin() const { return m_shadowMargin; }

protected:
    void showEvent(QShowEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void exposeEvent(QExposeEvent *event) override;

private:
    void useShadowMargin(int margin);
    void applyShape();

    int m_shadowMargin = ShadowMargin;
    bool m_shapeAfterMap = false;
};
