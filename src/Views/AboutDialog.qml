import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import QtQuick.Window

// "Über Quillmoor": name, version and a line about the app.
Window {
    id: dialog

    property string version

    title: "Über Quillmoor"
    width: 300
    height: 230
    minimumWidth: 300
    minimumHeight: 230
    flags: Qt.Dialog | Qt.WindowStaysOnTopHint
    color: "#2b2c31"

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 18
        spacing: 6

        Image {
            Layout.alignment: Qt.AlignHCenter
            source: "image://icon/HeaderIcon/%23eb621a"
            sourceSize.width: 128
            sourceSize.height: 128
            Layout.preferredWidth: 56
            Layout.preferredHeight: 56
        }
        Text {
            Layout.alignment: Qt.AlignHCenter
            text: "Quillmoor"
            color: "white"
            font.pixelSize: 17
            font.bold: true
        }
        Text {
            Layout.alignment: Qt.AlignHCenter
            text: "Version " + dialog.version
            color: Qt.rgba(1, 1, 1, 0.6)
            font.pixelSize: 12
        }
        Text {
            Layout.fillWidth: true
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            text: "Ein schwebender KI-Assistent für den Schreibtisch."
            color: Qt.rgba(1, 1, 1, 0.8)
            font.pixelSize: 12
        }
        Item { Layout.fillHeight: true }
        Button {
            objectName: "okButton"
            Layout.alignment: Qt.AlignHCenter
            text: "OK"
            onClicked: dialog.close()
        }
    }
}
