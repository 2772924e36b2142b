import QtQuick
import QtQuick.Controls
import Quillmoor
import QuillmoorTest

// The chat screen as the chat window holds it: a 400 × 600 pane inside the window's shadow margin.
Item {
    id: host
    width: 400 + 2 * margin
    height: 600 + 2 * margin
    readonly property int margin: 28

    ChatView {
        id: view
        anchors.fill: parent
        anchors.margins: host.margin
        session: Fixture.session
        settings: Fixture.settings
    }

    ViewTestCase {
        name: "ChatView"
        subject: view

        property var session: Fixture.session

        function bubble(index) {
            return named("messageRepeater").itemAt(index);
        }

        function ask(question, pieces, delayMs) {
            Fixture.scriptAnswer(pieces, delayMs);
            session.inputText = question;
            session.sendMessage();
        }

        function init() {
            Fixture.reset();
            tryCompare(session, "isLoading", false);
            // Clicks of consecutive tests land on the same buttons; apart in time they stay single clicks.
            wait(Qt.styleHints.mouseDoubleClickInterval + 50);
        }

        // The stop button stands in for the send button while an answer streams. Return meanwhile starts
        // no second turn and keeps the typed text; each way of ending the turn gives the keyboard back to it.
        // A screen reader hears the answer once, whole, when the turn has ended; the bubble it streams into
        // stays out of its reach until then.
        function test_turnEnds_data() {
            return [{tag: "stop button", end: () => mouseClick(named("stopButton"))},
                    {tag: "Escape", end: () => keyClick(Qt.Key_Escape)},
                    {tag: "Tab and Space", end: () => {
                        keyClick(Qt.Key_Tab);
                        compare(focused().Accessible.name, "Stoppen");
                        keyClick(Qt.Key_Space);
                    }},
                    {tag: "the answer's end", end: () => {
                        tryCompare(session, "isLoading", false, 5000);
                        compare(bubble(1).text, "eins zwei drei");
                    }}];
        }
        function test_turnEnds(data) {
            const state = named("chatScreen");
            const told = [];
            const listen = () => told.push(state.announcement);
            state.announcementChanged.connect(listen);
            Fixture.scriptAnswer(["eins", " zwei", " drei"], 300);
            mouseClick(named("inputField"));
            keyClick(Qt.Key_A);
            keyClick(Qt.Key_Return);
            compare(bubble(0).text, "a", "Return sends");
            tryCompare(named("stopButton"), "scale", 1);
            tryVerify(() => bubble(1) && bubble(1).text === "eins", 3000);
            compare(findChild(bubble(1), "markdown").Accessible.ignored, true, "the streaming answer is hidden");
            keyClick(Qt.Key_B);
            keyClick(Qt.Key_Return);
            compare(named("inputField").text, "b", "the text waits for the answer to end");
            data.end();
            compare(session.isLoading, false);
            tryCompare(named("stopButton"), "visible", false);
            compare(focused().objectName, "inputField");
            compare(session.inputText, "b");
            compare(session.messages.count, 2, "no second turn");
            verify(session.canSend, "the waiting text can go now");
            state.announcementChanged.disconnect(listen);
            compare(told.filter(text => text !== ""), [bubble(1).text]);
            compare(named("announcer").Accessible.name, bubble(1).text);
            compare(findChild(bubble(1), "markdown").Accessible.ignored, false);
        }

        // The thinking indicator shows until the answer starts; the bubbles sit on their sides; clearing
        // during a turn empties the list, not the field, and the pieces after it stay away. The reply
        // refusing pictures is told to a screen reader like any answer.
        function test_bubblesAndClearing() {
            const indicator = named("thinkingIndicator");
            compare(indicator.visible, false);
            session.addAttachment(Fixture.document("plan.txt"));
            ask("Frage", ["Ja"], 50);
            compare(indicator.visible, true, "the user's message is last while the turn starts");
            tryCompare(session.messages, "count", 2);
            compare(indicator.visible, false, "the empty answer ends it");
            tryCompare(session, "isLoading", false, 5000);

            const user = bubble(0);
            const userBox = findChild(user, "bubble");
            tryVerify(() => userBox.width > 24);
            fuzzyCompare(userBox.x + userBox.width, user.width, 0.5);
            compare(findChild(bubble(1), "bubble").x, 0);
            verify(findChild(user, "attachmentTiles").visible);

            ask("Noch was", ["c", "d"], 300);
            tryCompare(session.messages, "count", 4);
            session.inputText = "Entwurf";
            session.clearMessages();
            compare(named("messageRepeater").count, 0);
            tryCompare(session, "isLoading", false, 5000);
            compare(named("messageRepeater").count, 0);
            compare(session.inputText, "Entwurf");

            session.addAttachment(Fixture.picture("bild.png"));
            tryCompare(session.pendingAttachments, "count", 1);
            session.sendMessage();
            tryVerify(() => named("chatScreen").announcement.startsWith("Entschuldigung"), 3000);
        }

        // How far the end marker's bottom lies below the visible area (0 or less: the list shows its end).
        function gapBelowEnd() {
            const list = named("conversation");
            const marker = named("bottom");
            return marker.mapToItem(list, 0, marker.height).y - list.height;
        }

        // Several paragraphs per piece: each adds far more than 50 points to the answer.
        function paragraphs(tag, count) {
            return Array.from({length: count}, (_, i) => "Absatz " + tag + "." + i
                              + ": Ein Satz, der eine ganze Zeile füllt und noch weiter geht.\n\n").join("");
        }

        // Sent from the end six times: the question and then every piece of its answer end in view, also
        // pieces that add far more than 50 points at once, and the last line of every answer. A reader who
        // scrolled up stays put until sending again.
        function test_followsTheEnd() {
            const list = named("conversation");
            ask("Frage", [paragraphs("v", 10)], 0);
            tryCompare(session, "isLoading", false, 5000);
            tryVerify(() => list.contentHeight > list.height * 1.5);
            tryVerify(() => gapBelowEnd() <= 1, 2000, "the filled list ends at its end");
            for (let send = 0; send < 6; ++send) {
                const pieces = [paragraphs(send + "a", 1), paragraphs(send + "b", 3), paragraphs(send + "c", 2),
                                "Letzte Zeile " + send + "."];
                const answerRow = session.messages.count + 1;
                ask("Noch eine Frage " + send, pieces, 250);
                tryVerify(() => gapBelowEnd() <= 1, 1000, "send " + send + ": the question is in view");
                let expected = "";
                for (let p = 0; p < pieces.length; ++p) {
                    expected += pieces[p];
                    tryVerify(() => bubble(answerRow) && bubble(answerRow).text.length >= expected.length, 3000);
                    tryVerify(() => gapBelowEnd() <= 1, 1000,
                              "send " + send + ", piece " + p + ": the end is in view, gap " + gapBelowEnd());
                }
                tryCompare(session, "isLoading", false, 5000);
                wait(250);
                verify(gapBelowEnd() <= 1, "send " + send + ": the answer's last line is in view, gap "
                       + gapBelowEnd());
            }

            const answerRow = session.messages.count + 1;
            ask("noch eine", [paragraphs("x", 2), paragraphs("y", 2), paragraphs("z", 2)], 400);
            tryVerify(() => bubble(answerRow) && bubble(answerRow).text.length > 0, 3000);
            for (let i = 0; i < 4; ++i)
                mouseWheel(list, list.width / 2, list.height / 2, 0, 120, Qt.NoButton, Qt.NoModifier, 40);
            tryCompare(session, "isAtBottom", false);
            tryVerify(() => !list.moving);
            const readerPosition = list.contentY;
            tryCompare(session, "isLoading", false, 5000);
            wait(300);
            compare(list.contentY, readerPosition, "pieces do not pull a reader who scrolled up");
            ask("letzte Frage", ["Ende"], 0);
            tryVerify(() => gapBelowEnd() <= 1, 3000, "the own message brings the reader down");
        }

        // Everything a mouse can press is reached with Tab and has a German name for screen readers (the
        // stop button's is checked with the turn); Space presses what has the keyboard.
        function test_keyboardReachesEveryControl() {
            session.addAttachment(Fixture.document("notiz.txt"));
            tryCompare(named("pendingStrip"), "count", 1);
            compare(named("sendButton").enabled, true, "one pending attachment is enough to send");
            view.focusQuestionField();
            const reached = {};
            for (let i = 0; i < 12; ++i) {
                keyClick(Qt.Key_Tab);
                if (focused().objectName !== "")
                    reached[focused().objectName] = focused().Accessible.name;
            }
            compare(reached, {inputField: "Frag mich etwas...", sendButton: "Senden", removeButton: "Entfernen",
                              logoButton: "Verkleinern", menuButton: "Menü"});

            named("menuButton").forceActiveFocus(Qt.TabFocusReason);
            keyClick(Qt.Key_Space);
            tryCompare(named("mainMenu"), "opened", true);
            keyClick(Qt.Key_Escape);
            tryCompare(named("mainMenu"), "visible", false);
            tabTo("removeButton");
            keyClick(Qt.Key_Space);
            compare(session.pendingAttachments.count, 0);
        }

        // A tile's picture is drawn once its image has come from the attachment image provider. A canvas
        // hands out its context only once its window has rendered it.
        function loaded(picture) {
            const url = picture.parent.pictureUrl;
            return picture.available && picture.isImageLoaded(url)
                   && picture.getContext("2d").createImageData(url).width > 0;
        }

        // A picture is cut to its tile's rounded corners and a document name ends in an ellipsis; one fill
        // covers the whole header, and the input bar's fill and a full pending strip stay inside the pane's
        // rounded corners and edges. The pictures keep coming from Qt's image-loader thread while the answer
        // streams and the list changes.
        function test_tilesAndFills() {
            Fixture.settings.selectedModel = "qwen3";
            session.addAttachment(Fixture.document("ein-sehr-langer-dateiname-fuer-den-quartalsbericht.txt"));
            session.addAttachment(Fixture.picture("bild1.png"));
            session.addAttachment(Fixture.picture("bild2.png"));
            const strip = named("pendingStrip");
            tryCompare(strip, "count", 3);
            let tile = null;
            tryVerify(() => (tile = [1, 2].map(i => strip.itemAtIndex(i)).find(
                                 t => t && loaded(findChild(t, "picture")))) !== undefined);
            waitForRendering(strip);
            const pixel = (item, x, y) => {
                const p = item.mapToItem(host, x, y);
                return grabImage(host).pixel(p.x, p.y);
            };
            const blue = colour => colour.b > 0.6 && colour.r < 0.4;
            tryVerify(() => blue(pixel(tile, 40, 40)), 2000, "the picture fills the tile");
            verify(!blue(pixel(tile, 1, 1)), "the corner is cut away: " + pixel(tile, 1, 1));
            compare(findChild(strip.itemAtIndex(0), "documentName").truncated, true);
            const header = named("headerBackground");
            const a = pixel(header, 200, header.height - 24);
            const b = pixel(header, 200, header.height - 6);
            const close = (x, y) => Math.abs(x - y) <= 2 / 255;
            verify(close(a.r, b.r) && close(a.g, b.g) && close(a.b, b.b), "one fill: " + a + " above, " + b + " below");

            for (let i = 0; i < 4; ++i)
                session.addAttachment(Fixture.document("datei" + i + ".txt"));
            tryCompare(strip, "count", 7);
            strip.positionViewAtEnd();
            waitForRendering(view);
            wait(100);
            const image = grabImage(host);
            // The window's own colour, where nothing is drawn.
            const clear = String(image.pixel(2, 2));
            const stripY = strip.mapToItem(host, 0, strip.height / 2).y;
            compare(String(image.pixel(host.margin / 2, stripY)), clear, "nothing of the strip in the margin");
            compare(String(image.pixel(host.margin + 1, host.height - host.margin - 2)), clear,
                    "the input bar's corner is rounded away");

            ask("Was siehst du?", ["Zwei ", "Bilder ", "in ", "Blau"], 50);
            const sent = findChild(bubble(0), "attachmentTiles");
            tryCompare(sent.children, "length", 8); // seven tiles and their repeater
            for (const i of [1, 2])
                tryVerify(() => loaded(findChild(sent.children[i], "picture")));
            tryCompare(session, "isLoading", false, 5000);
            tryCompare(bubble(1), "text", "Zwei Bilder in Blau");
        }

        function test_helpOpensAfterTheUsualDelay() {
            const logo = named("logoButton");
            mouseMove(logo, logo.width / 2, logo.height / 2);
            tryVerify(() => logo.hovered);
            const tip = logo.ToolTip.toolTip;
            wait(150);
            compare(tip.visible, false, "not at once");
            tryVerify(() => tip.visible, 3000);
            compare(tip.text, "Click to minimize to tiny mode");
            mouseMove(host, 5, 5);
            tryVerify(() => !tip.visible);
        }
    }
}
