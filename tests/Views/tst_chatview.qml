import QtQuick
import QtTest
import Quillmoor
import QuillmoorTest

Item {
    id: host
    width: 400
    height: 600

    ChatView {
        id: view
        anchors.fill: parent
        session: Fixture.session
        settings: Fixture.settings
    }

    TestCase {
        name: "ChatView"
        when: windowShown

        property var session: Fixture.session

        function named(name) {
            const item = findChild(view, name);
            verify(item, "no item named " + name);
            return item;
        }

        function bubble(index) {
            return named("messageRepeater").itemAt(index);
        }

        function init() {
            Fixture.reset();
            tryCompare(session, "isLoading", false);
            // Clicks of consecutive tests land on the same buttons; apart in time they stay single clicks.
            wait(Qt.styleHints.mouseDoubleClickInterval + 50);
        }

        function test_sendButtonNeedsSomethingToSend() {
            const send = named("sendButton");
            compare(send.enabled, false);
            session.inputText = "Hallo";
            compare(send.enabled, true);
            session.inputText = "";
            compare(send.enabled, false);
            session.addAttachment(Fixture.document("notiz.txt"));
            compare(send.enabled, true, "one pending attachment is enough");
            mouseClick(send);
            compare(session.messages.count, 1, "the user's message comes first");
            tryCompare(session, "isLoading", false, 5000);
        }

        function test_stopButtonDuringTurn() {
            Fixture.scriptAnswer(["Hal", "lo"], 150);
            const send = named("sendButton");
            const stop = named("stopButton");
            compare(stop.shown, false);
            session.inputText = "Wie geht's?";
            mouseClick(send);
            compare(session.isLoading, true);
            compare(stop.shown, true);
            compare(send.shown, false);
            tryCompare(stop, "visible", true);
            tryCompare(session, "isLoading", false, 5000);
            compare(send.shown, true);
            tryCompare(stop, "visible", false);
            compare(session.messages.count, 2);
            tryCompare(bubble(1), "text", "Hallo");
        }

        function test_stopEndsTheTurn() {
            Fixture.scriptAnswer(["Teil", " zwei", " drei"], 400);
            mouseClick(named("inputField"));
            keyClick(Qt.Key_E);
            keyClick(Qt.Key_Return);
            compare(bubble(0).text, "e", "Return sends");
            compare(session.inputText, "");
            compare(session.isLoading, true);
            tryCompare(named("stopButton"), "scale", 1);
            mouseClick(named("stopButton"));
            compare(session.isLoading, false);
            compare(named("sendButton").shown, true);
        }

        function test_returnDuringAnAnswerKeepsTheText() {
            Fixture.scriptAnswer(["eins", " zwei"], 300);
            const requests = Fixture.chatRequests();
            const field = named("inputField");
            mouseClick(field);
            keyClick(Qt.Key_A);
            keyClick(Qt.Key_Return);
            compare(session.isLoading, true);
            keyClick(Qt.Key_B);
            keyClick(Qt.Key_Return);
            compare(field.text, "b", "the text waits for the answer to end");
            compare(session.inputText, "b");
            tryCompare(session, "isLoading", false, 5000);
            compare(session.messages.count, 2);
            compare(bubble(1).text, "eins zwei");
            compare(Fixture.chatRequests(), requests + 1);
        }

        // The pictures are loaded on Qt's image-loader thread while the answer streams and the list changes.
        function test_picturesWhileAnswering() {
            const model = Fixture.settings.selectedModel;
            Fixture.settings.selectedModel = "qwen3";
            session.addAttachment(Fixture.picture("bild1.png"));
            session.addAttachment(Fixture.picture("bild2.png"));
            tryCompare(session.pendingAttachments, "count", 2);
            const strip = named("pendingStrip");
            tryVerify(() => strip.itemAtIndex(1) && findChild(strip.itemAtIndex(1), "picture").status === Image.Ready);
            Fixture.scriptAnswer(["Zwei ", "Bilder ", "in ", "Blau"], 50);
            session.inputText = "Was siehst du?";
            session.sendMessage();
            const tiles = findChild(bubble(0), "attachmentTiles");
            tryCompare(tiles.children, "length", 3); // two tiles and their repeater
            for (let i = 0; i < 2; ++i) {
                const picture = findChild(tiles.children[i], "picture");
                tryCompare(picture, "status", Image.Ready);
                verify(picture.implicitWidth > 0);
            }
            tryCompare(session, "isLoading", false, 5000);
            tryCompare(bubble(1), "text", "Zwei Bilder in Blau");
            session.clearMessages();
            Fixture.settings.selectedModel = model;
        }

        function test_thinkingIndicatorUntilTheAnswerStarts() {
            Fixture.scriptAnswer(["Ja"], 50);
            const indicator = named("thinkingIndicator");
            compare(indicator.visible, false);
            session.inputText = "Frage";
            session.sendMessage();
            compare(indicator.visible, true, "the user's message is last while the turn starts");
            tryCompare(session.messages, "count", 2);
            compare(indicator.visible, false, "the empty answer ends it");
            tryCompare(session, "isLoading", false, 5000);
            compare(indicator.visible, false);
        }

        function test_removePendingAttachment() {
            session.addAttachment(Fixture.document("erste.txt"));
            session.addAttachment(Fixture.document("zweite.txt"));
            const strip = named("pendingStrip");
            compare(strip.visible, true);
            compare(strip.count, 2);
            waitForRendering(strip);
            const first = strip.itemAtIndex(0);
            mouseClick(findChild(first, "removeButton"));
            compare(session.pendingAttachments.count, 1);
            tryVerify(() => strip.count === 1 && strip.itemAtIndex(0).name === "zweite.txt");
            waitForRendering(strip);
            mouseClick(findChild(strip.itemAtIndex(0), "removeButton"));
            compare(session.pendingAttachments.count, 0);
            compare(strip.visible, false);
        }

        function test_clearingEmptiesTheList() {
            Fixture.scriptAnswer(["Antwort"], 0);
            session.inputText = "Hallo";
            session.sendMessage();
            tryCompare(session, "isLoading", false, 5000);
            compare(named("messageRepeater").count, 2);
            session.inputText = "Entwurf";
            session.clearMessages();
            compare(named("messageRepeater").count, 0);
            compare(session.inputText, "Entwurf", "only the conversation goes");
            compare(named("thinkingIndicator").visible, false);
        }

        function test_bubblesSitOnTheirSides() {
            Fixture.scriptAnswer(["Ok"], 0);
            session.addAttachment(Fixture.document("plan.txt"));
            session.inputText = "Hi";
            session.sendMessage();
            tryCompare(session, "isLoading", false, 5000);
            const user = bubble(0);
            const answer = bubble(1);
            const userBox = findChild(user, "bubble");
            const answerBox = findChild(answer, "bubble");
            tryVerify(() => userBox.width > 24);
            fuzzyCompare(userBox.x + userBox.width, user.width, 0.5);
            compare(answerBox.x, 0);
            compare(userBox.height, user.textHeight + 24);
            const tiles = findChild(user, "attachmentTiles");
            compare(tiles.visible, true);
            fuzzyCompare(tiles.x + tiles.width, user.width, 0.5);
        }

        function test_dropZoneFollowsTheDrag() {
            const zone = named("dropZone");
            compare(zone.visible, false);
            session.isDragging = true;
            compare(zone.visible, true);
            session.isDragging = false;
            compare(zone.visible, false);
        }

        function test_readerWhoScrolledUpStaysPut() {
            for (let i = 0; i < 8; ++i) {
                Fixture.scriptAnswer(["Zeile eins\n\nZeile zwei\n\nZeile drei"], 0);
                session.inputText = "Frage " + i;
                session.sendMessage();
                tryCompare(session, "isLoading", false, 5000);
            }
            const list = named("conversation");
            tryVerify(() => list.contentHeight > list.height * 2);
            tryCompare(session, "isAtBottom", true);
            Fixture.scriptAnswer(["Anfang", "\n\nmehr", "\n\nText", "\n\nkommt"], 300);
            const answerRow = session.messages.count + 1;
            session.inputText = "noch eine";
            session.sendMessage();
            tryVerify(() => bubble(answerRow) && bubble(answerRow).text === "Anfang", 3000);
            list.contentY = 0;
            tryCompare(session, "isAtBottom", false);
            tryCompare(session, "isLoading", false, 5000);
            wait(200);
            compare(list.contentY, 0, "pieces do not pull a reader who scrolled up");

            Fixture.scriptAnswer(["Ende"], 0);
            session.inputText = "letzte Frage";
            session.sendMessage();
            tryVerify(() => list.contentY > 0, 3000, "the own message brings the reader down");
            tryCompare(session, "isLoading", false, 5000);
            tryCompare(session, "isAtBottom", true);
        }
    }
}
