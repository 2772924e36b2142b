#pragma once

#include <QPoint>
#include <QQuickView>
#include <QTimer>

class AppSettings;

// The round logo of mini mode. Once it has been pressed it stays inside the visible area of its screen
// while it moves, and shortly after a drag it snaps flush to the nearest edge. A click without a drag asks
// the application to expand again.
class MiniLogoWindow : public QQuickView {
    Q_OBJECT
public:
    // The pause after the last move that ends a drag, and the extra wait when a frame change is under way.
    static constexpr int DragEndMs = 100;
    static constexpr int BusyRetryMs = 50;

    MiniLogoWindow(QQmlEngine *engine, AppSettings &settings);

    bool shouldSnap() const { return m_shouldSnap; }
    bool isUpdatingFrame() const { return m_isUpdatingFrame; }

signals:
    void clicked();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void moveEvent(QMoveEvent *event) override;

private:
    void windowDidMove();
    void dragEnded();
    void constrainToScreenBounds();
    void performSnapping();
    void snapToBorderIfNeeded();
    QRect visibleArea() const;

    bool m_isUpdatingFrame = false;
    bool m_shouldSnap = false;
    QTimer m_dragEndTimer;

    // The press that may become a drag: where the pointer and the window were.
    bool m_pressed = false;
    bool m_dragging = false;
    QPoint m_pressPointer;
    QPoint m_pressPosition;
};
