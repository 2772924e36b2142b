import QtQuick
import QtQuick.Controls

// A borderless button showing one of our symbols, tinted.
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
    focusPolicy: Qt.NoFocus

    contentItem: Image {
        source: "image://icon/" + button.symbol + "/" + encodeURIComponent(button.tint.toString())
        sourceSize.width: Math.ceil(button.symbolWidth * 2)
        sourceSize.height: Math.ceil(button.symbolHeight * 2)
        fillMode: Image.PreserveAspectFit
        smooth: true
        opacity: button.enabled ? 1 : 0.4
    }
}
