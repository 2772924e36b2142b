import QtQuick

// One message: its attachment tiles above a bubble of rendered Markdown; the user's on the right in the
// accent colour, the assistant's on the left in white.
Item {
    id: row

    required property string text
    required property bool isUser
    required property var attachments
    required property int index
    property color accentColor: "orange"
    // The answer that is still streaming in: screen readers hear it once it has ended, not piece by piece.
    property bool streaming: false
    // Starts at 20 and follows the measured height of the rendered text.
    readonly property real textHeight: markdown.dynamicHeight
    // Room kept free beside a full-width bubble, so the side it belongs to stays visible.
    readonly property real maximumTextWidth: Math.max(40, width - 24 - 40)

    implicitHeight: stack.height

    Column {
        id: stack
        width: row.width
        spacing: 4

        Item {
            width: parent.width
            height: tiles.height
            visible: row.attachments.length > 0
            Row {
                id: tiles
                objectName: "attachmentTiles"
                x: row.isUser ? parent.width - width : 0
                spacing: 8
                Repeater {
                    model: row.attachments
                    AttachmentView {
                        required property var modelData
                        attachmentId: modelData.id
                        isImage: modelData.isImage
                        name: modelData.name
                        accentColor: row.accentColor
                    }
                }
            }
        }

        Item {
            width: parent.width
            height: bubble.height
            Rectangle {
                id: bubble
                objectName: "bubble"
                x: row.isUser ? parent.width - width : 0
                width: Math.min(markdown.usedWidth, row.maximumTextWidth) + 24
                height: row.textHeight + 24
                radius: 16
                antialiasing: true
                color: row.isUser ? Qt.rgba(row.accentColor.r, row.accentColor.g, row.accentColor.b, 0.7)
                                  : Qt.rgba(1, 1, 1, 0.7)

                MarkdownTextView {
                    id: markdown
                    objectName: "markdown"
                    x: 12
                    y: 12
                    width: row.maximumTextWidth
                    height: row.textHeight
                    markdown: row.text
                    textColor: row.isUser ? "white" : "black"
                    accentColor: row.accentColor
                    Accessible.ignored: row.streaming
                }
            }
        }
    }
}
