import QtQuick
import QtQuick.Controls
import Quillmoor

// The settings window's content: glass, a lone close button where a title bar would have it, and the
// settings screen. The window moves by its background.
GlassFrame {
    id: root

    required property SettingsScreenState screen
    required property AppSettings settings
    signal closeRequested()

    GlassBackgroundView {
        anchors.fill: parent
    }

    // The window moves by its background.
    WindowDragArea {
        objectName: "settingsBackground"
        anchors.fill: parent
    }

    SettingsView {
        anchors.fill: parent
        screen: root.screen
        settings: root.settings
    }

    AbstractButton {
        id: closeButton
        objectName: "closeButton"
        x: 12
        y: 12
        width: 12
        height: 12
        hoverEnabled: true
        focusPolicy: Qt.TabFocus
        Accessible.name: "Schließen"
        Keys.onReturnPressed: closeButton.clicked()
        Keys.onEnterPressed: closeButton.clicked()
        onClicked: root.closeRequested()
        contentItem: Item {}
        background: Rectangle {
            radius: 6
            color: closeButton.pressed ? "#bf4942" : "#ff5f57"
            border.color: Qt.rgba(0, 0, 0, 0.2)
            Text {
                anchors.centerIn: parent
                text: "×"
                font.pixelSize: 11
                font.bold: true
                color: Qt.rgba(0.3, 0, 0, 0.8)
                visible: closeButton.hovered || closeButton.visualFocus
            }
        }
        FocusRing {
            shown: closeButton.visualFocus
            radius: 9
        }
    }

    Shortcut {
        sequence: StandardKey.Close
        onActivated: root.closeRequested()
    }
}
