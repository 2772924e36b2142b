import QtQuick
import Quillmoor

// Rendered Markdown, read-only and selectable, reporting the height and width its text needs.
TextEdit {
    id: view

    property string markdown
    property color textColor: "black"
    property color accentColor: "orange"
    readonly property real dynamicHeight: renderer.dynamicHeight
    readonly property int usedWidth: renderer.usedWidth

    readOnly: true
    selectByMouse: true
    persistentSelection: false
    wrapMode: TextEdit.Wrap
    padding: 0
    textMargin: 0
    font.pixelSize: 14
    color: textColor
    selectionColor: renderer.selectionColor
    selectedTextColor: textColor

    MarkdownTextItem {
        id: renderer
        document: view.textDocument
        text: view.markdown
        textColor: view.textColor
        accentColor: view.accentColor
        font: view.font
    }
}
