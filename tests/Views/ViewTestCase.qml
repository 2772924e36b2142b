import QtQuick
import QtTest

// A test case of one view once its window shows: items found by their object names, the item that has
// the keyboard, and Tab pressed until a named item has it.
TestCase {
    when: windowShown
    required property Item subject

    function named(name) {
        const item = findChild(subject, name);
        verify(item, "no item named " + name);
        return item;
    }

    function focused() {
        return subject.Window.activeFocusItem;
    }

    // Tabs from the current item until `name` has the keyboard; fails after a full round.
    function tabTo(name) {
        for (let i = 0; i < 20; ++i) {
            if (focused() && focused().objectName === name)
                return focused();
            keyClick(Qt.Key_Tab);
        }
        fail(name + " is not reached with Tab");
    }
}
