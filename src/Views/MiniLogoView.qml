import QtQuick
import Quillmoor

// The logo of mini mode: a small glass disc with the logo in the accent colour, a little larger while the
// pointer is over it. Its window handles presses, drags and clicks.
Item {
    id: root

    required property AppSettings settings

    width: 70
    height: 70
    Accessible.role: Accessible.Button
    Accessible.name: "Quillmoor öffnen"

    HoverHandler { id: hover }

    Item {
        id: logo
        anchors.centerIn: parent
        width: 44
        height: 44
        scale: hover.hovered ? 1.1 : 1.0
        Behavior on scale { SpringAnimation { spring: 4; damping: 0.35; epsilon: 0.001 } }

        Canvas {
            // The shadow follows the disc; painted wider than the disc so the blur has room.
            anchors.centerIn: parent
            width: 70
            height: 70
            onPaint: {
                const ctx = getContext("2d");
                ctx.reset();
                ctx.shadowColor = Qt.rgba(0, 0, 0, 0.3);
                ctx.shadowBlur = 8;
                ctx.shadowOffsetY = 4;
                ctx.fillStyle = "black";
                ctx.beginPath();
                ctx.arc(35, 35, 22, 0, 2 * Math.PI);
                ctx.fill();
                ctx.shadowColor = "transparent";
                ctx.globalCompositeOperation = "destination-out";
                ctx.fill();
            }
        }
        Rectangle {
            anchors.fill: parent
            radius: width / 2
            color: Qt.rgba(0.11, 0.12, 0.15, 0.78)
        }
        Canvas {
            anchors.fill: parent
            onPaint: {
                const ctx = getContext("2d");
                ctx.reset();
                const gradient = ctx.createRadialGradient(0, 0, 10, 0, 0, 100);
                gradient.addColorStop(0, Qt.rgba(1, 1, 1, 0.3));
                gradient.addColorStop(1, Qt.rgba(1, 1, 1, 0.05));
                ctx.fillStyle = gradient;
                ctx.beginPath();
                ctx.arc(22, 22, 22, 0, 2 * Math.PI);
                ctx.fill();
            }
        }
        Image {
            anchors.centerIn: parent
            width: 24
            height: 24
            source: "image://icon/HeaderIcon/" + encodeURIComponent(root.settings.accentColor.toString())
            sourceSize.width: 48
            sourceSize.height: 48
            fillMode: Image.PreserveAspectFit
        }
    }
}
