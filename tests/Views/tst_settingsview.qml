import QtQuick
import QtQuick.Controls
import Quillmoor
import QuillmoorTest

Item {
    id: host
    width: 400
    height: 600

    // The settings window's glass, which the form shows through.
    GlassBackgroundView {
        anchors.fill: parent
    }

    SettingsView {
        id: view
        anchors.fill: parent
        screen: Fixture.settingsScreen
        settings: Fixture.settings
    }

    ViewTestCase {
        name: "SettingsView"
        subject: view

        property var settings: Fixture.settings

        function init() {
            Fixture.reset();
            settings.accentColorIndex = 0;
            settings.masterPrompt = "";
        }

        function cleanup() {
            init();
        }

        // Every setting is reached with Tab and changed from the keyboard; the symbol-only controls have
        // German names for screen readers.
        function test_keyboardOperatesEverySetting() {
            Fixture.scriptAnswer(["Antwort"], 0);
            Fixture.session.inputText = "Frage";
            Fixture.session.sendMessage();
            Fixture.settingsScreen.dropFiles([Fixture.document("wissen.txt")]);
            tryVerify(() => findChild(view, "knowledgeRemoveButton") !== null, 3000);
            tryCompare(Fixture.session, "isLoading", false, 5000);

            named("swatch0").forceActiveFocus(Qt.TabFocusReason);
            compare(focused().Accessible.name, "Orange");
            compare(tabTo("swatch2").Accessible.name, "Lila");
            keyClick(Qt.Key_Space);
            compare(settings.accentColorIndex, 2);
            compare(named("swatch2").Accessible.checked, true);
            tabTo("swatch3");
            keyClick(Qt.Key_Return);
            compare(settings.accentColorIndex, 3);
            compare(tabTo("modelPicker").Accessible.name, "Modell wählen");
            keyClick(Qt.Key_Down);
            compare(settings.selectedModel, settings.availableModels[1]);
            compare(tabTo("promptEditor").Accessible.name, "Persönlichkeit");
            keyClick(Qt.Key_K);
            keyClick(Qt.Key_Tab);
            compare(settings.masterPrompt, "k", "Tab leaves the prompt instead of typing a tab");
            verify(focused().objectName !== "promptEditor");
            compare(tabTo("knowledgeRemoveButton").Accessible.name, "Entfernen");
            keyClick(Qt.Key_Space);
            tryVerify(() => findChild(view, "knowledgeRemoveButton") === null);
            compare(tabTo("clearChatButton").Accessible.name, "Chatverlauf löschen");
            compare(Fixture.session.messages.count, 2);
            keyClick(Qt.Key_Space);
            compare(Fixture.session.messages.count, 0);
        }

        // The picker is dark glass like the rest of the form, with light text: its fill differs little from
        // the section around it.
        function test_pickerMatchesTheForm() {
            const picker = named("modelPicker");
            waitForRendering(picker);
            const image = grabImage(host);
            const luminance = (item, x, y) => {
                const at = item.mapToItem(host, x, y);
                const c = image.pixel(at.x, at.y);
                return 0.2126 * c.r + 0.7152 * c.g + 0.0722 * c.b;
            };
            const inside = luminance(picker, picker.width * 0.75, picker.height / 2);
            const around = luminance(picker, picker.width * 0.75, picker.height + 3);
            verify(Math.abs(inside - around) < 0.1, "inside " + inside + ", around " + around);
            compare(picker.contentItem.color, Qt.color("white"));
        }
    }
}
