import QtQuick

// One 80 × 80 attachment tile: the picture, or a document symbol with the file's name.
Item {
    id: tile

    required property string attachmentId
    required property bool isImage
    required property string name
    property color accentColor: "orange"

    implicitWidth: 80
    implicitHeight: 80

    Rectangle {
        anchors.fill: parent
        visible: !tile.isImage
        radius: 12
        color: Qt.rgba(1, 1, 1, 0.1)
    }

    Image {
        objectName: "picture"
        anchors.fill: parent
        visible: tile.isImage
        source: tile.isImage ? "image://attachment/" + tile.attachmentId : ""
        sourceSize.width: 160
        sourceSize.height: 160
        fillMode: Image.PreserveAspectCrop
        asynchronous: true
        cache: false
    }

    Column {
        anchors.centerIn: parent
        visible: !tile.isImage
        spacing: 6
        Image {
            anchors.horizontalCenter: parent.horizontalCenter
            source: "image://icon/doc.fill/" + encodeURIComponent(tile.accentColor.toString())
            sourceSize.width: 48
            sourceSize.height: 60
            width: 24
            height: 30
        }
        Text {
            width: tile.width - 8
            horizontalAlignment: Text.AlignHCenter
            text: tile.name
            color: "white"
            font.pixelSize: 10
            elide: Text.ElideMiddle
            maximumLineCount: 1
        }
    }

    Rectangle {
        anchors.fill: parent
        radius: 12
        color: "transparent"
        border.width: 1
        border.color: Qt.rgba(1, 1, 1, 0.3)
    }
}
