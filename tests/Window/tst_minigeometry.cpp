#include "TestMain.h"

#include "Core/WindowGeometry.h"

using namespace WindowGeometry;

Q_DECLARE_METATYPE(WindowGeometry::Edge)

// The arithmetic behind mini mode: swapping the chat window for the logo and back, keeping the logo on
// the screen while it is dragged and snapping it to an edge afterwards.
class TestMiniGeometry : public QObject {
    Q_OBJECT

    // A visible area that does not start at the origin, as with a panel on the left and at the top.
    const QRect area{40, 30, 1200, 800};

private slots:
    void logoSitsOnTheHeaderLogo()
    {
        const QRect chat(100, 200, ChatWidth, ChatHeight);
        const QRect logo = logoFrameFor(chat);
        QCOMPARE(logo.size(), QSize(70, 70));
        QCOMPARE(logo.center() + QPoint(1, 1), QPoint(126, 222)); // QRect::center() rounds down
        QCOMPARE(logo.topLeft(), QPoint(91, 187));
    }

    void minimizeThenExpandRestoresTheFrame_data()
    {
        QTest::addColumn<QRect>("chat");
        QTest::addRow("middle") << QRect(300, 150, ChatWidth, ChatHeight);
        QTest::addRow("origin") << QRect(0, 0, ChatWidth, ChatHeight);
        QTest::addRow("partly off-screen") << QRect(-250, 700, ChatWidth, ChatHeight);
    }
    void minimizeThenExpandRestoresTheFrame()
    {
        QFETCH(QRect, chat);
        QCOMPARE(chatFrameFor(logoFrameFor(chat)), chat);
    }

    void expandingAtTheRightEdgeReachesBeyondIt()
    {
        const QRect logo(rightEdge() - LogoSize, 400, LogoSize, LogoSize);
        const QRect chat = chatFrameFor(logo);
        QCOMPARE(chat.x(), logo.x() + 35 - 26);
        QCOMPARE(chat.y(), logo.y() + 35 - 22);
        QCOMPARE(chat.size(), QSize(400, 600));
        QVERIFY(chat.x() + chat.width() > rightEdge());
    }

    void clampKeepsTheLogoInside_data()
    {
        QTest::addColumn<QRect>("frame");
        QTest::addColumn<QRect>("expected");
        QTest::addRow("inside") << QRect(500, 300, 70, 70) << QRect(500, 300, 70, 70);
        QTest::addRow("beyond left") << QRect(10, 300, 70, 70) << QRect(40, 300, 70, 70);
        QTest::addRow("beyond right") << QRect(1200, 300, 70, 70) << QRect(1170, 300, 70, 70);
        QTest::addRow("beyond top") << QRect(500, -20, 70, 70) << QRect(500, 30, 70, 70);
        QTest::addRow("beyond bottom") << QRect(500, 790, 70, 70) << QRect(500, 760, 70, 70);
        QTest::addRow("beyond a corner") << QRect(1300, 900, 70, 70) << QRect(1170, 760, 70, 70);
        QTest::addRow("touching the right edge") << QRect(1170, 300, 70, 70) << QRect(1170, 300, 70, 70);
        // Wider than the area: the left edge wins, as the horizontal rule checks it first.
        QTest::addRow("too wide") << QRect(0, 300, 1300, 70) << QRect(40, 300, 1300, 70);
    }
    void clampKeepsTheLogoInside()
    {
        QFETCH(QRect, frame);
        QFETCH(QRect, expected);
        QCOMPARE(clampedToArea(frame, area), expected);
    }

    void nearestEdgeAndTies_data()
    {
        QTest::addColumn<QRect>("frame");
        QTest::addColumn<Edge>("edge");
        QTest::addRow("30 from left, far from others") << QRect(70, 230, 70, 70) << Edge::Left;
        QTest::addRow("near right") << QRect(1150, 400, 70, 70) << Edge::Right;
        QTest::addRow("near top") << QRect(600, 35, 70, 70) << Edge::Top;
        QTest::addRow("near bottom") << QRect(600, 740, 70, 70) << Edge::Bottom;
        // 50 on either side, 365 above and below.
        QTest::addRow("left equals right") << QRect(90, 395, 1100, 70) << Edge::Left;
        // 30 + 365 leaves 365 above and below; horizontal distances are larger.
        QTest::addRow("top equals bottom") << QRect(40 + 500, 395, 70, 70) << Edge::Top;
        QTest::addRow("in a corner") << QRect(40, 30, 70, 70) << Edge::Left;
    }
    void nearestEdgeAndTies()
    {
        QFETCH(QRect, frame);
        QFETCH(Edge, edge);
        QCOMPARE(nearestEdge(frame, area), edge);
    }

    void snapMovesOneCoordinateOnly()
    {
        const QRect leftish(70, 230, 70, 70);
        QCOMPARE(snappedToNearestEdge(leftish, area), QRect(40, 230, 70, 70));
        const QRect rightish(1150, 400, 70, 70);
        QCOMPARE(snappedToNearestEdge(rightish, area), QRect(1170, 400, 70, 70));
        const QRect topish(600, 35, 70, 70);
        QCOMPARE(snappedToNearestEdge(topish, area), QRect(600, 30, 70, 70));
        const QRect bottomish(600, 740, 70, 70);
        QCOMPARE(snappedToNearestEdge(bottomish, area), QRect(600, 760, 70, 70));
    }

    void snapIsStableAtAnEdge()
    {
        const QRect snapped = snappedToNearestEdge(QRect(70, 230, 70, 70), area);
        QCOMPARE(snappedToNearestEdge(snapped, area), snapped);
        QCOMPARE(clampedToArea(snapped, area), snapped);
    }

    void dragBeyondTheRightEdgeIsPushedBackThenSnapped()
    {
        const QRect dragged(1210, 400, 70, 70);
        const QRect clamped = clampedToArea(dragged, area);
        QCOMPARE(clamped.x() + clamped.width(), rightEdge());
        QCOMPARE(snappedToNearestEdge(clamped, area), clamped);
    }

    void centring()
    {
        QCOMPARE(centredIn(QSize(400, 600), area), QRect(440, 130, 400, 600));
        QCOMPARE(centredIn(QSize(400, 600), QRect(0, 0, 401, 601)), QRect(0, 0, 400, 600));
    }

private:
    int rightEdge() const { return area.x() + area.width(); }

    // The logo's hover help opens below it, or above it at the bottom edge, and never leaves the area.
    void helpTipStaysOnTheScreen_data()
    {
        QTest::addColumn<QRect>("logo");
        QTest::addColumn<QRect>("expected");
        QTest::addRow("below, centred") << QRect(500, 300, 70, 70) << QRect(460, 376, 150, 24);
        QTest::addRow("at the bottom edge") << QRect(500, 760, 70, 70) << QRect(460, 730, 150, 24);
        QTest::addRow("at the left edge") << QRect(40, 300, 70, 70) << QRect(40, 376, 150, 24);
        QTest::addRow("at the right edge") << QRect(1170, 300, 70, 70) << QRect(1090, 376, 150, 24);
        QTest::addRow("in the bottom right corner") << QRect(1170, 760, 70, 70) << QRect(1090, 730, 150, 24);
    }
    void helpTipStaysOnTheScreen()
    {
        QFETCH(QRect, logo);
        QFETCH(QRect, expected);
        QCOMPARE(helpTipFrameFor(logo, QSize(150, 24), area), expected);
    }
};

QUILLMOOR_TEST_MAIN(TestMiniGeometry)

#include "tst_minigeometry.moc"
