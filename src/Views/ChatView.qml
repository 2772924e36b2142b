import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quillmoor

// The chat window's whole content: header, conversation, pending attachments, input row, drop zone.
Item {
    id: root

    required property ChatSession session
    required property AppSettings settings
    readonly property color accent: settings.accentColor
    signal minimizeRequested()

    ChatScreenState {
        id: screen
        session: root.session
    }

    GlassBackgroundView {
        anchors.fill: parent
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        HeaderBar {
            Layout.fillWidth: true
            color: root.accent
            onMinimize: root.minimizeRequested()
        }

        Flickable {
            id: conversation
            objectName: "conversation"
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            contentWidth: width
            contentHeight: stack.height
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

            property bool followPending: false

            // The end marker's top within the visible area, and where the list stands with the marker at
            // the bottom edge.
            function markerY() { return endMarker.mapToItem(conversation, 0, 0).y }
            function endContentY() {
                return Math.max(0, Math.min(contentHeight - height, endMarker.y + endMarker.height - height));
            }
            function report() { screen.reportEndMarker(markerY(), height) }
            function animateToEnd() {
                follow.stop();
                follow.to = endContentY();
                if (Math.abs(follow.to - contentY) < 0.5)
                    followPending = false;
                else
                    follow.start();
            }

            onContentYChanged: report()
            onHeightChanged: report()
            onMovementStarted: {
                follow.stop();
                followPending = false;
            }
            Component.onCompleted: {
                contentY = endContentY();
                report();
            }

            NumberAnimation {
                id: follow
                target: conversation
                property: "contentY"
                duration: 150
                easing.type: Easing.OutQuad
                onFinished: conversation.followPending = false
            }

            Connections {
                target: screen
                function onConversationChanged() {
                    if (!screen.shouldFollowEnd())
                        return;
                    conversation.followPending = true;
                    Qt.callLater(conversation.animateToEnd);
                }
            }

            Column {
                id: stack
                width: conversation.width
                padding: 16
                spacing: 12
                onHeightChanged: {
                    conversation.report();
                    if (conversation.followPending)
                        conversation.animateToEnd();
                }

                Repeater {
                    objectName: "messageRepeater"
                    model: root.session.messages
                    MessageBubbleView {
                        width: stack.width - stack.leftPadding - stack.rightPadding
                        accentColor: root.accent
                    }
                }

                Row {
                    objectName: "thinkingIndicator"
                    visible: screen.showsThinkingIndicator
                    leftPadding: 12
                    spacing: 6
                    BusyIndicator {
                        running: parent.visible
                        implicitWidth: 20
                        implicitHeight: 20
                        scale: 0.8
                        palette.dark: "white"
                    }
                    Text {
                        anchors.verticalCenter: parent.verticalCenter
                        text: "Denkt nach..."
                        color: Qt.rgba(1, 1, 1, 0.6)
                        font.pixelSize: 11
                    }
                }

                Item {
                    id: endMarker
                    objectName: "bottom"
                    width: 1
                    height: 1
                }
            }
        }

        ListView {
            id: pendingStrip
            objectName: "pendingStrip"
            Layout.fillWidth: true
            Layout.preferredHeight: 80 + 16
            visible: root.session.pendingAttachments.count > 0
            orientation: ListView.Horizontal
            spacing: 8
            leftMargin: 16
            rightMargin: 16
            topMargin: 8
            bottomMargin: 8
            clip: false
            model: root.session.pendingAttachments
            delegate: AttachmentView {
                id: pendingTile
                required property int index
                accentColor: root.accent

                SymbolButton {
                    objectName: "removeButton"
                    symbol: "xmark.circle.fill"
                    tint: "white"
                    symbolHeight: 18
                    x: pendingTile.width - width + 4
                    y: -4
                    onClicked: screen.removePendingAttachment(pendingTile.attachmentId)
                    // The symbol's cross is cut out; the black disc behind shows through it.
                    Rectangle {
                        z: -1
                        anchors.centerIn: parent
                        width: parent.width - 2
                        height: width
                        radius: width / 2
                        color: "black"
                    }
                }
            }
        }

        Rectangle {
            Layout.fillWidth: true
            implicitHeight: inputRow.implicitHeight + 32
            color: Qt.rgba(0, 0, 0, 0.1)

            RowLayout {
                id: inputRow
                anchors.fill: parent
                anchors.margins: 16
                spacing: 12

                TextField {
                    id: field
                    objectName: "inputField"
                    Layout.fillWidth: true
                    text: root.session.inputText
                    onTextEdited: root.session.inputText = text
                    onAccepted: root.session.sendMessage()
                    placeholderText: "Frag mich etwas..."
                    placeholderTextColor: Qt.rgba(1, 1, 1, 0.45)
                    color: "white"
                    font.pixelSize: 13
                    padding: 12
                    selectByMouse: true
                    background: Rectangle {
                        radius: 12
                        antialiasing: true
                        color: Qt.rgba(1, 1, 1, 0.15)
                    }
                }

                Item {
                    implicitWidth: 28
                    implicitHeight: 28

                    SymbolButton {
                        id: sendButton
                        objectName: "sendButton"
                        anchors.centerIn: parent
                        symbol: "arrow.up.circle.fill"
                        tint: root.accent
                        enabled: root.session.canSend
                        readonly property bool shown: !root.session.isLoading
                        visible: opacity > 0.001
                        scale: shown ? 1 : 0.00001
                        opacity: shown ? 1 : 0
                        Behavior on scale { NumberAnimation { duration: 200; easing.type: Easing.InOutQuad } }
                        Behavior on opacity { NumberAnimation { duration: 200; easing.type: Easing.InOutQuad } }
                        onClicked: root.session.sendMessage()
                    }

                    SymbolButton {
                        id: stopButton
                        objectName: "stopButton"
                        anchors.centerIn: parent
                        symbol: "xmark.circle.fill"
                        tint: "gray"
                        readonly property bool shown: root.session.isLoading
                        visible: opacity > 0.001
                        scale: shown ? 1 : 0.00001
                        opacity: shown ? 1 : 0
                        Behavior on scale { NumberAnimation { duration: 200; easing.type: Easing.InOutQuad } }
                        Behavior on opacity { NumberAnimation { duration: 200; easing.type: Easing.InOutQuad } }
                        onClicked: root.session.cancelStreaming()
                    }
                }
            }
        }
    }

    Item {
        id: dropZone
        objectName: "dropZone"
        anchors.fill: parent
        visible: root.session.isDragging

        Rectangle {
            anchors.fill: parent
            radius: 16
            color: Qt.rgba(0, 0, 0, 0.4)
        }

        Canvas {
            anchors.fill: parent
            anchors.margins: 20
            property color stroke: root.accent
            onStrokeChanged: requestPaint()
            onWidthChanged: requestPaint()
            onHeightChanged: requestPaint()
            onPaint: {
                const ctx = getContext("2d");
                ctx.reset();
                ctx.strokeStyle = stroke;
                ctx.lineWidth = 4;
                ctx.setLineDash([10 / 4, 10 / 4]);
                ctx.beginPath();
                ctx.roundedRect(2, 2, width - 4, height - 4, 18, 18);
                ctx.stroke();
            }
        }

        Column {
            anchors.centerIn: parent
            spacing: 8
            Image {
                anchors.horizontalCenter: parent.horizontalCenter
                source: "image://icon/arrow.down.doc.fill/white"
                sourceSize.width: 100
                sourceSize.height: 120
                width: 50
                height: 60
            }
            Text {
                text: "Dateien hier ablegen"
                color: "white"
                font.pixelSize: 17
                font.bold: true
            }
        }
    }

    DropArea {
        anchors.fill: parent
        onEntered: drag => {
            if (!screen.acceptsDrag(drag.urls)) {
                drag.accepted = false;
                return;
            }
            root.session.isDragging = true;
        }
        onExited: root.session.isDragging = false
        onDropped: drop => {
            root.session.isDragging = false;
            screen.handleDrop(drop.urls);
            drop.accept(Qt.CopyAction);
        }
    }
}
