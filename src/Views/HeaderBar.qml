import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window
import Quillmoor

// The strip at the top: the logo (shrinks the window to its mini form) and the main menu.
Item {
    id: bar

    property color color: "orange"
    property real cornerRadius: 16
    signal minimize()

    implicitHeight: row.implicitHeight + 24

    // The fill reaches under the window's rounded top corners but stays square at the bottom.
    Rectangle {
        anchors.fill: parent
        radius: bar.cornerRadius
        color: Qt.rgba(0, 0, 0, 0.1)
        Rectangle {
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.bottom: parent.bottom
            height: Math.min(parent.height, bar.cornerRadius)
            color: Qt.rgba(0, 0, 0, 0.1)
        }
    }

    // The frameless window moves by its header.
    DragHandler {
        target: null
        onActiveChanged: if (active && bar.Window.window) bar.Window.window.startSystemMove()
    }

    RowLayout {
        id: row
        anchors.fill: parent
        anchors.leftMargin: 16
        anchors.rightMargin: 16
        anchors.topMargin: 12
        anchors.bottomMargin: 12
        spacing: 12

        SymbolButton {
            id: logo
            objectName: "logoButton"
            symbol: "HeaderIcon"
            tint: bar.color
            symbolHeight: 20
            ToolTip.visible: hovered
            ToolTip.text: "Click to minimize to tiny mode"
            onClicked: bar.minimize()
        }

        Item { Layout.fillWidth: true }

        AbstractButton {
            id: menuButton
            objectName: "menuButton"
            implicitWidth: 22
            implicitHeight: 20
            hoverEnabled: true
            focusPolicy: Qt.NoFocus
            ToolTip.visible: hovered
            ToolTip.text: "Menu"
            onClicked: menu.popup(menuButton, menuButton.width - menu.width, menuButton.height + 4)

            contentItem: Item {
                Column {
                    anchors.centerIn: parent
                    width: parent.width
                    spacing: 5
                    Repeater {
                        model: 3
                        Rectangle {
                            width: menuButton.width
                            height: 3
                            radius: 1.5
                            color: Qt.rgba(1, 1, 1, 0.8)
                        }
                    }
                }
            }

            Menu {
                id: menu
                objectName: "mainMenu"
                MenuItem {
                    text: "Einstellungen"
                    onTriggered: AppActions.openSettings()
                }
                MenuItem {
                    text: "Canvas"
                    enabled: false
                }
                MenuSeparator {}
                MenuItem {
                    text: "Beenden"
                    onTriggered: AppActions.quit()
                }
            }
        }
    }
}
