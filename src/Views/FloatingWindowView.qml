import QtQuick
import QtQuick.Controls
import Quillmoor

// The chat window's content: the chat screen on glass, the application menu on a right click and its
// keyboard shortcut.
GlassFrame {
    id: root

    required property ChatSession session
    required property AppSettings settings
    signal minimizeRequested()
    signal settingsRequested()
    signal aboutRequested()

    function focusQuestionField() {
        chat.focusQuestionField();
    }

    ChatView {
        id: chat
        anchors.fill: parent
        session: root.session
        settings: root.settings
        onMinimizeRequested: root.minimizeRequested()
    }

    // Made on first use: the window's first frame does not wait for a menu nobody opened yet.
    property Menu appMenu: null

    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: (point) => {
            if (!root.appMenu)
                root.appMenu = appMenuComponent.createObject(root, {parent: root});
            root.appMenu.popup(point.position.x, point.position.y);
        }
    }

    Shortcut {
        sequence: "Ctrl+,"
        context: Qt.ApplicationShortcut
        onActivated: root.settingsRequested()
    }

    Component {
        id: appMenuComponent
        Menu {
            objectName: "appMenu"
            MenuItem {
                text: "Einstellungen..."
                onTriggered: root.settingsRequested()
            }
            MenuItem {
                text: "Über Quillmoor"
                onTriggered: root.aboutRequested()
            }
        }
    }
}
