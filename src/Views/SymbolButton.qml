import QtQuick
import QtQuick.Controls

// A borderless button showing one of our symbols, tinted. Reached with Tab, not taken by a click, so a
// click never pulls the keyboard away from where the user types. Space or Return press it.
AbstractButton {
    id: button

    required property string symbol
    property color tint: "white"
    property real symbolHeight: 28
    property real symbolWidth: symbolHeight

    implicitWidth: symbolWidth
    implicitHeight: symbolHeight
    padding: 0
    hoverEnabled: true
    focusPolicy: Qt.TabFocus
    Accessible.role: Accessible.Button
    Keys.onReturnPressed: button.clicked()
    Keys.onEnterPressed: button.clicked()

    // A button that starts hidden (the stop button) draws its symbol when it is first shown, not at launch.
    property bool symbolShown: false
    onVisibleChanged: if (visible) symbolShown = true
    Component.onCompleted: if (visible) symbolShown = true

    contentItem: Image {
        source: button.symbolShown
                ? "image://icon/" + button.symbol + "/" + encodeURIComponent(button.tint.toString()) : ""
        sourceSize.width: Math.ceil(button.symbolWidth * 2)
        sourceSize.height: Math.ceil(button.symbolHeight * 2)
        fillMode: Image.PreserveAspectFit
        smooth: true
        opacity: button.enabled ? 1 : 0.4
    }

    FocusRing {
        shown: button.visualFocus
        radius: Math.min(button.width, button.height) / 2 + 3
    }
}
