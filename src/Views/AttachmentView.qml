import QtQuick

// One 80 × 80 attachment tile: the picture, or a document symbol with the file's name.
Item {
    id: tile

    required property string attachmentId
    required property bool isImage
    required property string name
    property color accentColor: "orange"
    readonly property string pictureUrl: isImage ? "image://attachment/" + attachmentId : ""
    readonly property real radius: 12

    implicitWidth: 80
    implicitHeight: 80

    Rectangle {
        anchors.fill: parent
        visible: !tile.isImage
        radius: tile.radius
        color: Qt.rgba(1, 1, 1, 0.1)
    }

    // The picture fills the tile, cropped to its shape: the rounded corners cut it too.
    Canvas {
        id: picture
        objectName: "picture"
        anchors.fill: parent
        visible: tile.isImage
        onWidthChanged: requestPaint()
        onHeightChanged: requestPaint()
        onImageLoaded: requestPaint()
        Component.onCompleted: if (tile.pictureUrl !== "") loadImage(tile.pictureUrl)
        onPaint: {
            const ctx = getContext("2d");
            ctx.reset();
            if (tile.pictureUrl === "" || !isImageLoaded(tile.pictureUrl))
                return;
            const image = ctx.createImageData(tile.pictureUrl);
            if (!image || image.width <= 0 || image.height <= 0)
                return;
            const scale = Math.max(width / image.width, height / image.height);
            const sourceWidth = width / scale;
            const sourceHeight = height / scale;
            ctx.beginPath();
            ctx.roundedRect(0, 0, width, height, tile.radius, tile.radius);
            ctx.clip();
            ctx.drawImage(tile.pictureUrl, (image.width - sourceWidth) / 2, (image.height - sourceHeight) / 2,
                          sourceWidth, sourceHeight, 0, 0, width, height);
        }
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
            objectName: "documentName"
            width: tile.width - 8
            horizontalAlignment: Text.AlignHCenter
            text: tile.name
            color: "white"
            font.pixelSize: 10
            elide: Text.ElideRight
            maximumLineCount: 1
        }
    }

    Rectangle {
        anchors.fill: parent
        radius: tile.radius
        color: "transparent"
        border.width: 1
        border.color: Qt.rgba(1, 1, 1, 0.3)
    }
}
