#include "TestMain.h"

#include "Core/WindowGeometry.h"

using namespace WindowGeometry;

Q_DECLARE_METATYPE(WindowGeometry::Edge)

class TestMiniGeometry : public QObject {
    Q_OBJECT

    // A visible area that does not start at the origin, as with a panel on the left and at the top.
    const QRect area{40, 30, 1200, 800};

private slots:
    void clampKeepsTheLogoInside_data()
    {
        QTest::addColumn<QRect>("frame");
        QTest::addColumn<QRect>("expected");
        QTest::addRow("beyond top") << QRect(500, -20, 70, 70) << QRect(500, 30, 70, 70);
        QTest::addRow("beyond a corner") << QRect(1300, 900, 70, 70) << QRect(1170, 760, 70, 70);
        // Wider than the area: the left edge wins, as the horizontal rule checks it first.
        QTest::addRow("too wide") << QRect(0, 300, 1300, 70) << QRect(40, 300, 1300, 70);
    }
    void clampKeepsTheLogoInside()
    {
        QFETCH(QRect, frame);
        QFETCH(QRect, expected);
        QCOMPARE(clampedToArea(frame, area), expected);
    }

    // Snapping moves one coordinate only, to the nearest edge, and a snapped logo stays where it is.
    void snapToTheNearestEdge_data()
    {
        QTest::addColumn<QRect>("frame");
        QTest::addColumn<Edge>("edge");
        QTest::addColumn<QRect>("snapped");
        QTest::addRow("near right") << QRect(1150, 400, 70, 70) << Edge::Right << QRect(1170, 400, 70, 70);
        QTest::addRow("near bottom") << QRect(600, 740, 70, 70) << Edge::Bottom << QRect(600, 760, 70, 70);
        // Ties: 50 on either side (365 above and below), then 365 above and below.
        QTest::addRow("left equals right")
            << QRect(90, 395, 1100, 70) << Edge::Left << QRect(40, 395, 1100, 70);
        QTest::addRow("top equals bottom") << QRect(540, 395, 70, 70) << Edge::Top << QRect(540, 30, 70, 70);
        QTest::addRow("in a corner") << QRect(40, 30, 70, 70) << Edge::Left << QRect(40, 30, 70, 70);
    }
    void snapToTheNearestEdge()
    {
        QFETCH(QRect, frame);
        QFETCH(Edge, edge);
        QFETCH(QRect, snapped);
        QCOMPARE(nearestEdge(frame, area), edge);
        QCOMPARE(snappedToNearestEdge(frame, area), snapped);
        QCOMPARE(snappedToNearestEdge(snapped, area), snapped);
    }

    // The chat window comes back where it was, even partly off-screen; a window opens in the middle.
    void swapAndCentre()
    {
        const QRect chat(-250, 700, ChatWidth, ChatHeight);
        QCOMPARE(chatFrameFor(logoFrameFor(chat)), chat);
        QCOMPARE(centredIn(QSize(400, 600), area), QRect(440, 130, 400, 600));
        QCOMPARE(centredIn(QSize(400, 600), QRect(0, 0, 401, 601)), QRect(0, 0, 400, 600));
    }

    // The logo's hover help opens below it, or above it at the bottom edge, and never leaves the area.
    void helpTipStaysOnTheScreen_data()
    {
        QTest::addColumn<QRect>("logo");
        QTest::addColumn<QRect>("expected");
        QTest::addRow("below, centred") << QRect(500, 300, 70, 70) << QRect(460, 376, 150, 24);
        QTest::addRow("at the left edge") << QRect(40, 300, 70, 70) << QRect(40, 376, 150, 24);
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
