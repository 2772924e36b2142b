import QtQuick

// A hover help in a window of its own, for a window too small to hold it (the mini logo).
Rectangle {
    id: tip

    property string text

    implicitWidth: label.implicitWidth + 16
    implicitHeight: label.implicitHeight + 10
    color: Qt.rgba(0.16, 0.17, 0.2, 1)
    border.width: 1
    border.color: Qt.rgba(1, 1, 1, 0.18)

    Text {
        id: label
        objectName: "helpText"
        anchors.centerIn: parent
        text: tip.text
        color: "white"
        font.pixelSize: 12
    }
}
