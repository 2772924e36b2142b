import QtQuick

// The glass pane of a shell window with its soft shadow. The native window is larger than the pane by
// `shadowMargin` on every side so the shadow has room; children go onto the pane. Without a margin (no
// compositor to blend a shadow) the pane is the window.
Item {
    id: frame

    property int shadowMargin: 28
    property real radius: 16
    default property alias content: pane.data

    // A soft shadow from rings that fade outwards; a blurred canvas costs most of a second at start-up.
    Repeater {
        model: frame.shadowMargin > 0 ? 20 : 0
        Rectangle {
            required property int index
            x: frame.shadowMargin - index
            // Dropped a little further with each ring, so the shadow falls below the glass without a gap.
            y: frame.shadowMargin - index + Math.round(8 * index / 20)
            width: frame.width - 2 * frame.shadowMargin + 2 * index
            height: frame.height - 2 * frame.shadowMargin + 2 * index
            radius: frame.radius + index
            color: "transparent"
            border.width: 1
            border.color: Qt.rgba(0, 0, 0, 0.22 * Math.pow(1 - index / 20, 2))
        }
    }

    Item {
        id: pane
        anchors.fill: parent
        anchors.margins: frame.shadowMargin
    }
}
