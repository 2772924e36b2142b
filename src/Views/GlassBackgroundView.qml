import QtQuick

// The translucent backdrop: a thin dark material with a soft light falling in from the top-left corner.
Item {
    id: glass

    property real radius: 16

    Rectangle {
        anchors.fill: parent
        radius: glass.radius
        color: Qt.rgba(0.11, 0.12, 0.15, 0.82)
    }

    // Painted on a thread of its own: the window's first frame does not wait for a full-size gradient to be
    // rastered, and the faint light joins it a frame later.
    Canvas {
        id: sheen
        anchors.fill: parent
        renderStrategy: Canvas.Threaded
        onWidthChanged: requestPaint()
        onHeightChanged: requestPaint()
        onPaint: {
            const ctx = getContext("2d");
            ctx.reset();
            const gradient = ctx.createRadialGradient(0, 0, 50, 0, 0, 400);
            gradient.addColorStop(0, Qt.rgba(1, 1, 1, 0.15));
            gradient.addColorStop(1, Qt.rgba(1, 1, 1, 0.02));
            ctx.fillStyle = gradient;
            ctx.beginPath();
            ctx.roundedRect(0, 0, width, height, glass.radius, glass.radius);
            ctx.fill();
        }
    }
}
