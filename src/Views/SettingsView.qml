import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quillmoor

// The settings screen: five grouped sections on the glass, edited in place; no save or cancel.
Item {
    id: root

    required property SettingsScreenState screen
    required property AppSettings settings
    readonly property color primary: "white"
    readonly property color secondary: Qt.rgba(1, 1, 1, 0.6)

    component Section: ColumnLayout {
        id: section
        property string title
        property string symbol
        property string footer
        default property alias content: box.data
        Layout.fillWidth: true
        spacing: 6

        RowLayout {
            spacing: 6
            Layout.leftMargin: 4
            Image {
                source: "image://icon/" + section.symbol + "/" + encodeURIComponent(root.secondary.toString())
                sourceSize.width: 28
                sourceSize.height: 28
                Layout.preferredWidth: 14
                Layout.preferredHeight: 14
                fillMode: Image.PreserveAspectFit
            }
            Text {
                text: section.title
                color: root.secondary
                font.pixelSize: 12
                font.weight: Font.DemiBold
            }
        }
        Rectangle {
            Layout.fillWidth: true
            implicitHeight: box.implicitHeight + 20
            radius: 10
            color: Qt.rgba(1, 1, 1, 0.06)
            border.color: Qt.rgba(1, 1, 1, 0.08)
            ColumnLayout {
                id: box
                anchors.fill: parent
                anchors.margins: 10
                spacing: 8
            }
        }
        Text {
            Layout.fillWidth: true
            Layout.leftMargin: 4
            text: section.footer
            color: root.secondary
            font.pixelSize: 11
            wrapMode: Text.Wrap
        }
    }

    component Symbol: Image {
        property string name
        property color tint: root.secondary
        property real size: 16
        source: "image://icon/" + name + "/" + encodeURIComponent(tint.toString())
        sourceSize.width: Math.ceil(size * 2)
        sourceSize.height: Math.ceil(size * 2)
        width: size
        height: size
        Layout.preferredWidth: size
        Layout.preferredHeight: size
        fillMode: Image.PreserveAspectFit
    }

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        // Kept for its place only: the close button lies over the top of the screen.
        Text {
            Layout.topMargin: 12
            Layout.bottomMargin: 8
            Layout.alignment: Qt.AlignHCenter
            text: "Einstellungen"
            font.pixelSize: 17
            font.bold: true
            opacity: 0
        }

        Flickable {
            id: form
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            contentWidth: width
            contentHeight: sections.implicitHeight + 24
            boundsBehavior: Flickable.StopAtBounds
            ScrollBar.vertical: ScrollBar { policy: ScrollBar.AsNeeded }

            // The form's empty space moves the window like the rest of its background.
            WindowDragArea {
                objectName: "formBackground"
                width: form.width
                height: Math.max(form.height, form.contentHeight)
            }

            ColumnLayout {
                id: sections
                x: 16
                width: form.width - 32
                spacing: 18

                Section {
                    title: "Erscheinungsbild"
                    symbol: "paintbrush.fill"
                    footer: "Diese Farbe wird im gesamten Chat-Fenster verwendet."
                    RowLayout {
                        Text { text: "Akzentfarbe"; color: root.primary; font.pixelSize: 13 }
                        Item { Layout.fillWidth: true }
                        Row {
                            spacing: 12
                            Repeater {
                                model: root.settings.accentColors
                                AbstractButton {
                                    id: swatch
                                    required property color modelData
                                    required property int index
                                    objectName: "swatch" + index
                                    width: 22
                                    height: 22
                                    focusPolicy: Qt.TabFocus
                                    checkable: false
                                    checked: index === root.settings.accentColorIndex
                                    Accessible.role: Accessible.RadioButton
                                    Accessible.checkable: true
                                    Accessible.checked: checked
                                    Accessible.name: root.screen.accentColorName(index)
                                    Keys.onReturnPressed: swatch.clicked()
                                    Keys.onEnterPressed: swatch.clicked()
                                    onClicked: root.screen.chooseAccentColor(index)
                                    background: Rectangle {
                                        radius: 11
                                        color: swatch.modelData
                                        border.color: Qt.rgba(1, 1, 1, 0.1)
                                        border.width: 1
                                    }
                                    contentItem: Item {
                                        Symbol {
                                            anchors.centerIn: parent
                                            name: "checkmark"
                                            tint: "white"
                                            size: 12
                                            opacity: swatch.checked ? 1 : 0
                                            Behavior on opacity { NumberAnimation { duration: 350; easing.type: Easing.OutCubic } }
                                        }
                                    }
                                    FocusRing {
                                        shown: swatch.visualFocus
                                        radius: 14
                                    }
                                }
                            }
                        }
                    }
                }

                Section {
                    title: "Intelligenz"
                    symbol: "cpu"
                    footer: "Das gewählte Modell bestimmt die Qualität und Geschwindigkeit der Antworten."
                    ComboBox {
                        id: picker
                        objectName: "modelPicker"
                        Layout.fillWidth: true
                        implicitHeight: 30
                        Accessible.name: "Modell wählen"
                        model: root.settings.availableModels
                        currentIndex: model.indexOf(root.settings.selectedModel)
                        displayText: root.settings.selectedModel
                        onActivated: index => root.screen.chooseModel(textAt(index))
                        font.pixelSize: 13
                        leftPadding: 10
                        rightPadding: 30

                        // Dark glass like the rest of the form, not the toolkit's light grey.
                        background: Rectangle {
                            radius: 7
                            color: picker.pressed || picker.popup.visible ? Qt.rgba(1, 1, 1, 0.16)
                                   : picker.hovered ? Qt.rgba(1, 1, 1, 0.12) : Qt.rgba(1, 1, 1, 0.08)
                            border.width: 1
                            border.color: Qt.rgba(1, 1, 1, 0.14)
                            FocusRing {
                                shown: picker.visualFocus
                                radius: 9
                            }
                        }
                        contentItem: Text {
                            text: picker.displayText
                            font: picker.font
                            color: root.primary
                            verticalAlignment: Text.AlignVCenter
                            elide: Text.ElideRight
                        }
                        indicator: Symbol {
                            x: picker.width - width - 10
                            y: (picker.height - height) / 2
                            name: "chevron.up.chevron.down"
                            tint: root.secondary
                            size: 12
                        }
                        popup: Popup {
                            y: picker.height + 4
                            width: picker.width
                            implicitHeight: contentItem.implicitHeight + 8
                            padding: 4
                            contentItem: ListView {
                                clip: true
                                implicitHeight: contentHeight
                                model: picker.popup.visible ? picker.delegateModel : null
                                currentIndex: picker.highlightedIndex
                            }
                            background: Rectangle {
                                radius: 8
                                color: Qt.rgba(0.16, 0.17, 0.2, 0.97)
                                border.width: 1
                                border.color: Qt.rgba(1, 1, 1, 0.14)
                            }
                        }
                        delegate: ItemDelegate {
                            id: item
                            required property string modelData
                            required property int index
                            width: picker.width - 8
                            implicitHeight: 28
                            text: modelData
                            highlighted: picker.highlightedIndex === index
                            hoverEnabled: true
                            contentItem: Text {
                                text: item.text
                                font.pixelSize: 13
                                font.bold: item.modelData === root.settings.selectedModel
                                color: root.primary
                                verticalAlignment: Text.AlignVCenter
                                elide: Text.ElideRight
                            }
                            background: Rectangle {
                                radius: 5
                                color: item.highlighted ? Qt.rgba(1, 1, 1, 0.14) : "transparent"
                            }
                            readonly property string help: root.screen.modelHelpText(modelData)
                            ToolTip.visible: hovered && help !== ""
                            ToolTip.text: help
                            ToolTip.delay: DesktopStyle.toolTipDelay
                        }
                    }
                }

                Section {
                    title: "Persönlichkeit"
                    symbol: "text.quote"
                    footer: "Dieser Prompt definiert, wie sich der Assistent verhält."
                    TextArea {
                        objectName: "promptEditor"
                        Layout.fillWidth: true
                        Layout.minimumHeight: 120
                        topPadding: 4
                        bottomPadding: 4
                        leftPadding: 2
                        rightPadding: 2
                        wrapMode: TextEdit.Wrap
                        color: root.primary
                        font.pixelSize: 13
                        background: null
                        text: root.settings.masterPrompt
                        onTextChanged: root.screen.setMasterPrompt(text)
                        Accessible.name: "Persönlichkeit"
                        // Tab leaves the prompt, as everywhere else in the form; a prompt has no use for tabs.
                        Keys.priority: Keys.BeforeItem
                        Keys.onTabPressed: event => {
                            nextItemInFocusChain(true).forceActiveFocus(Qt.TabFocusReason);
                            event.accepted = true;
                        }
                        Keys.onBacktabPressed: event => {
                            nextItemInFocusChain(false).forceActiveFocus(Qt.BacktabFocusReason);
                            event.accepted = true;
                        }
                    }
                }

                Section {
                    title: "Wissen"
                    symbol: "book.closed.fill"
                    footer: "Dateien hier ablegen. Diese werden als globales Wissen verwendet."
                    Repeater {
                        model: root.screen.knowledgeRows
                        RowLayout {
                            required property string name
                            required property int index
                            Layout.fillWidth: true
                            spacing: 8
                            Symbol { name: "doc.text" }
                            Text {
                                Layout.fillWidth: true
                                text: parent.name
                                color: root.primary
                                font.pixelSize: 13
                                elide: Text.ElideMiddle
                                maximumLineCount: 1
                            }
                            SymbolButton {
                                objectName: "knowledgeRemoveButton"
                                symbol: "xmark.circle.fill"
                                tint: root.secondary
                                symbolHeight: 16
                                Accessible.name: "Entfernen"
                                Accessible.description: parent.name
                                onClicked: root.screen.removeKnowledgeRow(parent.index)
                            }
                        }
                    }
                    Item {
                        objectName: "knowledgeDropZone"
                        Layout.fillWidth: true
                        implicitHeight: 60
                        Rectangle {
                            anchors.fill: parent
                            radius: 8
                            color: Qt.rgba(1, 1, 1, 0.05)
                        }
                        Canvas {
                            anchors.fill: parent
                            onWidthChanged: requestPaint()
                            onPaint: {
                                const ctx = getContext("2d");
                                ctx.reset();
                                ctx.strokeStyle = Qt.rgba(1, 1, 1, 0.3);
                                ctx.lineWidth = 1;
                                ctx.setLineDash([4, 4]);
                                ctx.beginPath();
                                ctx.roundedRect(0.5, 0.5, width - 1, height - 1, 8, 8);
                                ctx.stroke();
                            }
                        }
                        Column {
                            anchors.centerIn: parent
                            spacing: 4
                            Symbol { anchors.horizontalCenter: parent.horizontalCenter; name: "arrow.down.doc"; size: 20 }
                            Text {
                                text: "Dateien hier ablegen"
                                color: root.secondary
                                font.pixelSize: 11
                            }
                        }
                        DropArea {
                            anchors.fill: parent
                            onDropped: drop => {
                                if (root.screen.dropFiles(drop.urls))
                                    drop.accept(Qt.CopyAction);
                            }
                        }
                    }
                }

                Section {
                    title: "Speicher"
                    symbol: "memorychip"
                    footer: "Löscht alle Nachrichten aus dem aktuellen Chat."
                    AbstractButton {
                        id: clearButton
                        objectName: "clearChatButton"
                        Layout.fillWidth: true
                        implicitHeight: 24
                        hoverEnabled: true
                        focusPolicy: Qt.StrongFocus
                        Accessible.name: "Chatverlauf löschen"
                        Keys.onReturnPressed: clearButton.clicked()
                        Keys.onEnterPressed: clearButton.clicked()
                        onClicked: root.screen.clearChat()
                        contentItem: RowLayout {
                            spacing: 6
                            Symbol { name: "trash"; tint: "#ff453a"; size: 14 }
                            Text {
                                text: "Chatverlauf löschen"
                                color: "#ff453a"
                                font.pixelSize: 13
                                opacity: clearButton.pressed ? 0.6 : 1
                            }
                            Item { Layout.fillWidth: true }
                        }
                        FocusRing {
                            shown: clearButton.visualFocus
                        }
                    }
                }
            }
        }
    }
}
