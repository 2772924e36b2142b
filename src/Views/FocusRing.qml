import QtQuick

// The mark of the control that has the keyboard, drawn just outside it.
Rectangle {
    property bool shown: false

    anchors.fill: parent
    anchors.margins: -3
    visible: shown
    color: "transparent"
    radius: 6
    border.width: 2
    border.color: Qt.rgba(1, 1, 1, 0.85)
    antialiasing: true
}
