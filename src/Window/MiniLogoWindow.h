#pragma once

#include <QPoint>
#include <QQuickView>
#include <QTimer>

#include <memory>

class AppSettings;
class HelpTipWindow;

// The round logo of mini mode. Once it has been pressed it stays inside the visible area of its screen
// while it moves, and shortly after a drag it snaps flush to the nearest edge. A click without a drag asks
// the application to expand again. Only the round logo takes the mouse; resting on it opens its hover
// help.
class MiniLogoWindow : public QQuickView {
    Q_OBJECT
public:
    // The pause after the last move that ends a drag, and the extra wait when a frame change is under way.
    static constexpr int DragEndMs = 100;
    static constexpr int BusyRetryMs = 50;

    // The diameter of the round logo in the middle of the window.
    static constexpr qreal LogoDiameter = 44;
    static inline const QString HelpText = QStringLiteral("Click to open Quillmoor");

    MiniLogoWindow(QQmlEngine *engine, AppSettings &settings);
    ~MiniLogoWindow() override;

    bool shouldSnap() const { return m_shouldSnap; }
    bool isUpdatingFrame() const { return m_isUpdatingFrame; }
    // The hover help, once it was first shown.
    HelpTipWindow *helpTip() const { return m_helpTip.get(); }

signals:
    void clicked();

protected:
    bool event(QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void exposeEvent(QExposeEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void moveEvent(QMoveEvent *event) override;

private:
    void windowDidMove();
    void applyShape();
    void showHelp();
    void hideHelp();
    void dragEnded();
    void constrainToScreenBounds();
    void performSnapping();
    void snapToBorderIfNeeded();
    QRect visibleArea() const;

    bool m_isUpdatingFrame = false;
    bool m_shouldSnap = false;
    QTimer m_dragEndTimer;
    bool m_shapeAfterMap = false;
    QTimer m_helpTimer;
    std::unique_ptr<HelpTipWindow> m_helpTip;

    // The press that may become a drag: where the pointer and the window were.
    bool m_pressed = false;
    bool m_dragging = false;
    QPoint m_pressPointer;
    QPoint m_pressPosition;
};
