import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Quillmoor

// The strip at the top: the logo (shrinks the window to its mini form) and the main menu.
Item {
    id: bar

    property color color: "orange"
    property real cornerRadius: 16
    signal minimize()

    implicitHeight: row.implicitHeight + 24

    // One fill, rounded like the window at the top: it reaches below the bar and is cut off there.
    Item {
        anchors.fill: parent
        clip: true
        Rectangle {
            width: parent.width
            height: parent.height + bar.cornerRadius
            radius: bar.cornerRadius
            color: Qt.rgba(0, 0, 0, 0.1)
        }
    }

    // The frameless window moves by its header.
    WindowDragArea {
        objectName: "headerBackground"
        anchors.fill: parent
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
            Accessible.name: "Verkleinern"
            ToolTip.visible: hovered
            ToolTip.delay: DesktopStyle.toolTipDelay
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
            focusPolicy: Qt.TabFocus
            Accessible.role: Accessible.ButtonMenu
            Accessible.name: "Menü"
            ToolTip.visible: hovered
            ToolTip.delay: DesktopStyle.toolTipDelay
            ToolTip.text: "Menu"
            Keys.onReturnPressed: menuButton.clicked()
            Keys.onEnterPressed: menuButton.clicked()
            onClicked: {
                // Made on first use: the window's first frame does not wait for a menu nobody opened yet.
                if (!menu)
                    menu = menuComponent.createObject(menuButton, {parent: menuButton});
                menu.popup(menuButton, menuButton.width - menu.width, menuButton.height + 4);
            }

            property Menu menu: null

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

            FocusRing {
                shown: menuButton.visualFocus
            }

            Component {
                id: menuComponent
                Menu {
                    objectName: "mainMenu"
                    // Opened from the keyboard, it is walked with the arrow keys.
                    focus: true
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
}
