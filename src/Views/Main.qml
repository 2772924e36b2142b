import QtQuick
import QtQuick.Window
import Quillmoor

// The floating chat window: frameless, above other windows, its corners and glass drawn by the view.
Window {
    id: window

    required property ChatSession session
    required property AppSettings settings
    signal minimizeRequested()

    width: 400
    height: 600
    visible: true
    title: "Quillmoor"
    color: "transparent"
    flags: Qt.FramelessWindowHint | Qt.WindowStaysOnTopHint

    ChatView {
        anchors.fill: parent
        session: window.session
        settings: window.settings
        onMinimizeRequested: window.minimizeRequested()
    }
}
