import QtQuick

// The glass pane of a shell window with its soft shadow. The native window is larger than the pane by
// `shadowMargin` on every side so the shadow has room; children go onto the pane.
Item {
    id: frame

    property int shadowMargin: 28
    property real radius: 16
    default property alias content: pane.data

    Canvas {
        id: shadow
        anchors.fill: parent
        onWidthChanged: requestPaint()
        onHeightChanged: requestPaint()
        onPaint: {
            const ctx = getContext("2d");
            ctx.reset();
            const m = frame.shadowMargin;
            ctx.shadowColor = Qt.rgba(0, 0, 0, 0.3);
            ctx.shadowBlur = 20;
            ctx.shadowOffsetY = 8;
            ctx.fillStyle = "black";
            ctx.beginPath();
            ctx.roundedRect(m, m, width - 2 * m, height - 2 * m, frame.radius, frame.radius);
            ctx.fill();
            // The pane is translucent: only the shadow outside it may show.
            ctx.shadowColor = "transparent";
            ctx.globalCompositeOperation = "destination-out";
            ctx.fill();
        }
    }

    Item {
        id: pane
        anchors.fill: parent
        anchors.margins: frame.shadowMargin
    }
}
