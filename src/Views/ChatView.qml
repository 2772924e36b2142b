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
        objectName: "chatScreen"
        session: root.session
    }

    // The question field takes the keyboard whenever the chat window appears.
    function focusQuestionField() {
        field.forceActiveFocus(Qt.ActiveWindowFocusReason);
    }

    Keys.onEscapePressed: event => event.accepted = screen.escapePressed()

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
            ScrollBar.vertical: ScrollBar {
                policy: ScrollBar.AsNeeded
                onPressedChanged: screen.readerScrolling(pressed)
            }

            // True while the list glides to the end the screen asked for; its moves are not the reader's.
            property bool following: false

            function report() {
                screen.reportLayout(contentY, contentHeight, endMarker.y, endMarker.y + endMarker.height, height,
                                    following);
            }

            onContentYChanged: report()
            onContentHeightChanged: report()
            onHeightChanged: report()
            onMovementStarted: screen.readerScrolling(true)
            onMovementEnded: screen.readerScrolling(false)
            Component.onCompleted: report()

            NumberAnimation {
                id: follow
                target: conversation
                property: "contentY"
                duration: 150
                easing.type: Easing.OutQuad
                onFinished: {
                    conversation.following = false;
                    conversation.report();
                }
            }

            Connections {
                target: screen
                function onScrollToEnd(contentY, animated) {
                    follow.stop();
                    if (!animated) {
                        conversation.following = false;
                        conversation.contentY = contentY;
                        return;
                    }
                    conversation.following = true;
                    follow.from = conversation.contentY;
                    follow.to = contentY;
                    follow.start();
                }
                function onStopFollowing() {
                    follow.stop();
                    conversation.following = false;
                }
            }

            // The conversation's empty space moves the window; text stays selectable.
            WindowDragArea {
                objectName: "conversationBackground"
                width: conversation.width
                height: Math.max(conversation.height, stack.height)
            }

            Column {
                id: stack
                width: conversation.width
                padding: 16
                spacing: 12

                Repeater {
                    objectName: "messageRepeater"
                    model: root.session.messages
                    MessageBubbleView {
                        width: stack.width - stack.leftPadding - stack.rightPadding
                        accentColor: root.accent
                        streaming: index === screen.streamingRow
                    }
                }

                Row {
                    objectName: "thinkingIndicator"
                    visible: screen.showsThinkingIndicator
                    leftPadding: 12
                    spacing: 6
                    // Made while the model thinks only: the window's first frame does not wait for it.
                    Loader {
                        active: parent.visible
                        sourceComponent: BusyIndicator {
                            running: true
                            implicitWidth: 20
                            implicitHeight: 20
                            scale: 0.8
                            palette.dark: "white"
                        }
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
                    onYChanged: conversation.report()
                }
            }
        }

        // A plain row in a sideways list: its remove buttons stay in the window's Tab order.
        Flickable {
            id: pendingStrip
            objectName: "pendingStrip"
            Layout.fillWidth: true
            Layout.preferredHeight: 80 + 16
            visible: root.session.pendingAttachments.count > 0
            flickableDirection: Flickable.HorizontalFlick
            boundsBehavior: Flickable.StopAtBounds
            contentWidth: tiles.width
            contentHeight: height
            // Tiles scrolled aside end at the window's edges.
            clip: true

            readonly property alias count: tileRepeater.count
            function itemAtIndex(index) { return tileRepeater.itemAt(index); }
            function positionViewAtEnd() { contentX = Math.max(0, contentWidth - width); }
            function show(item) {
                const left = item.x + tiles.x;
                if (left - 8 < contentX)
                    contentX = Math.max(0, left - 16);
                else if (left + item.width + 8 > contentX + width)
                    contentX = Math.min(contentWidth - width, left + item.width + 16 - width);
            }

            Row {
                id: tiles
                padding: 16
                topPadding: 8
                bottomPadding: 8
                spacing: 8

                Repeater {
                    id: tileRepeater
                    model: root.session.pendingAttachments
                    AttachmentView {
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
                            Accessible.name: "Entfernen"
                            Accessible.description: pendingTile.name
                            onClicked: screen.removePendingAttachment(pendingTile.attachmentId)
                            onActiveFocusChanged: if (activeFocus) pendingStrip.show(pendingTile)
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
            }
        }

        Item {
            id: inputBar
            objectName: "inputBar"
            Layout.fillWidth: true
            implicitHeight: inputRow.implicitHeight + 32
            clip: true

            // One fill, rounded like the window at the bottom: it reaches below the bar and is cut off.
            Rectangle {
                width: parent.width
                y: -radius
                height: parent.height + radius
                radius: 16
                color: Qt.rgba(0, 0, 0, 0.1)
            }

            // The bar's background moves the window.
            WindowDragArea {
                objectName: "inputBarBackground"
                anchors.fill: parent
            }

            RowLayout {
                id: inputRow
                anchors.fill: parent
                anchors.margins: 16
                spacing: 12

                TextField {
                    id: field
                    objectName: "inputField"
                    Layout.fillWidth: true
                    focus: true
                    text: root.session.inputText
                    onTextEdited: root.session.inputText = text
                    onAccepted: root.session.sendMessage()
                    placeholderText: "Frag mich etwas..."
                    placeholderTextColor: Qt.rgba(1, 1, 1, 0.45)
                    color: "white"
                    font.pixelSize: 13
                    padding: 12
                    selectByMouse: true
                    Accessible.name: "Frag mich etwas..."
                    background: Rectangle {
                        radius: 12
                        antialiasing: true
                        color: Qt.rgba(1, 1, 1, 0.15)
                        border.width: field.activeFocus ? 1 : 0
                        border.color: Qt.rgba(1, 1, 1, 0.35)
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
                        Accessible.name: "Senden"
                        readonly property bool shown: !root.session.isLoading
                        visible: shown || opacity > 0.001
                        scale: shown ? 1 : 0.00001
                        opacity: shown ? 1 : 0
                        Behavior on scale { NumberAnimation { duration: 200; easing.type: Easing.InOutQuad } }
                        Behavior on opacity { NumberAnimation { duration: 200; easing.type: Easing.InOutQuad } }
                        onClicked: root.session.sendMessage()
                        // A keyboard user who sent or stopped goes on typing.
                        onShownChanged: if (!shown && activeFocus) field.forceActiveFocus(Qt.OtherFocusReason)
                    }

                    SymbolButton {
                        id: stopButton
                        objectName: "stopButton"
                        anchors.centerIn: parent
                        symbol: "xmark.circle.fill"
                        tint: "gray"
                        Accessible.name: "Stoppen"
                        readonly property bool shown: root.session.isLoading
                        visible: shown || opacity > 0.001
                        scale: shown ? 1 : 0.00001
                        opacity: shown ? 1 : 0
                        Behavior on scale { NumberAnimation { duration: 200; easing.type: Easing.InOutQuad } }
                        Behavior on opacity { NumberAnimation { duration: 200; easing.type: Easing.InOutQuad } }
                        onClicked: root.session.cancelStreaming()
                        onShownChanged: if (!shown && activeFocus) field.forceActiveFocus(Qt.OtherFocusReason)
                    }
                }
            }
        }
    }

    // What a screen reader hears when an answer has ended: the whole answer, once.
    Item {
        objectName: "announcer"
        visible: screen.announcement !== ""
        Accessible.role: Accessible.AlertMessage
        Accessible.name: screen.announcement
    }

    Item {
        id: dropZone
        objectName: "dropZone"
        anchors.fill: parent
        visible: root.session.isDragging

        // Built while a drag is over the window only: the window's first frame does not wait for it.
        Loader {
            anchors.fill: parent
            active: dropZone.visible
            sourceComponent: Item {
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
