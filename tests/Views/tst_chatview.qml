import QtQuick
import QtQuick.Controls
import QtTest
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

        // The stop button stands in for the send button while an answer streams; it, Escape, or the end of
        // the answer ends the turn.
        function test_stopDuringTurn() {
            const send = named("sendButton");
            const stop = named("stopButton");
            compare(stop.shown, false);
            Fixture.scriptAnswer(["Teil", " zwei", " drei"], 400);
            mouseClick(named("inputField"));
            keyClick(Qt.Key_E);
            keyClick(Qt.Key_Return);
            compare(bubble(0).text, "e", "Return sends");
            compare(session.inputText, "");
            compare(session.isLoading, true);
            compare(send.shown, false);
            tryCompare(stop, "scale", 1);
            mouseClick(stop);
            compare(session.isLoading, false);
            compare(send.shown, true);
            tryCompare(stop, "visible", false);

            Fixture.scriptAnswer(["Teil", " zwei", " drei", " vier"], 300);
            keyClick(Qt.Key_F);
            keyClick(Qt.Key_Return);
            tryVerify(() => bubble(3) && bubble(3).text === "Teil", 3000);
            keyClick(Qt.Key_Escape);
            compare(session.isLoading, false, "Escape stops the streaming answer");

            Fixture.scriptAnswer(["Hal", "lo"], 150);
            keyClick(Qt.Key_G);
            keyClick(Qt.Key_Return);
            compare(stop.shown, true);
            tryCompare(session, "isLoading", false, 5000);
            tryCompare(stop, "visible", false);
            tryVerify(() => bubble(5) && bubble(5).text === "Hallo");
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

        // A tile's picture is drawn once its image has come from the attachment image provider. A canvas
        // hands out its context only once its window has rendered it.
        function loaded(picture) {
            const url = picture.parent.pictureUrl;
            return picture.available && picture.isImageLoaded(url)
                   && picture.getContext("2d").createImageData(url).width > 0;
        }

        // The pictures are loaded on Qt's image-loader thread while the answer streams and the list changes.
        function test_picturesWhileAnswering() {
            const model = Fixture.settings.selectedModel;
            Fixture.settings.selectedModel = "qwen3";
            session.addAttachment(Fixture.picture("bild1.png"));
            session.addAttachment(Fixture.picture("bild2.png"));
            tryCompare(session.pendingAttachments, "count", 2);
            const strip = named("pendingStrip");
            tryVerify(() => strip.itemAtIndex(1) && loaded(findChild(strip.itemAtIndex(1), "picture")));
            Fixture.scriptAnswer(["Zwei ", "Bilder ", "in ", "Blau"], 50);
            session.inputText = "Was siehst du?";
            session.sendMessage();
            const tiles = findChild(bubble(0), "attachmentTiles");
            tryCompare(tiles.children, "length", 3); // two tiles and their repeater
            for (let i = 0; i < 2; ++i) {
                const picture = findChild(tiles.children[i], "picture");
                tryVerify(() => loaded(picture));
            }
            tryCompare(session, "isLoading", false, 5000);
            tryCompare(bubble(1), "text", "Zwei Bilder in Blau");
            session.clearMessages();
            Fixture.settings.selectedModel = model;
        }

        // The thinking indicator shows until the answer starts; clearing empties the list, not the field.
        function test_thinkingIndicatorAndClearing() {
            Fixture.scriptAnswer(["Ja"], 50);
            const indicator = named("thinkingIndicator");
            compare(indicator.visible, false);
            session.inputText = "Frage";
            session.sendMessage();
            compare(indicator.visible, true, "the user's message is last while the turn starts");
            tryCompare(session.messages, "count", 2);
            compare(indicator.visible, false, "the empty answer ends it");
            tryCompare(session, "isLoading", false, 5000);
            compare(named("messageRepeater").count, 2);
            session.inputText = "Entwurf";
            session.clearMessages();
            compare(named("messageRepeater").count, 0);
            compare(session.inputText, "Entwurf", "only the conversation goes");
            compare(indicator.visible, false);
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

        // How far the end marker's bottom lies below the visible area (0 or less: the list shows its end).
        function gapBelowEnd() {
            const list = named("conversation");
            const marker = named("bottom");
            return marker.mapToItem(list, 0, marker.height).y - list.height;
        }

        // Several paragraphs per piece: each adds far more than 50 points to the answer.
        function paragraphs(tag, count) {
            let text = "";
            for (let i = 0; i < count; ++i)
                text += "Absatz " + tag + "." + i + ": Ein Satz, der eine ganze Zeile füllt und noch weiter geht.\n\n";
            return text;
        }

        function fillConversation(turns) {
            for (let i = 0; i < turns; ++i) {
                Fixture.scriptAnswer([paragraphs("v" + i, 2)], 0);
                session.inputText = "Frage " + i;
                session.sendMessage();
                tryCompare(session, "isLoading", false, 5000);
            }
            const list = named("conversation");
            tryVerify(() => list.contentHeight > list.height * 1.5);
        }

        // Sent from the end six times: the question and then every piece of its answer end in view, also
        // pieces that add far more than 50 points at once, and the last line of every answer.
        function test_followsTheEndThroughSixSends() {
            fillConversation(5);
            tryVerify(() => gapBelowEnd() <= 1, 2000, "the filled list ends at its end");
            for (let send = 0; send < 6; ++send) {
                const pieces = [paragraphs(send + "a", 1), paragraphs(send + "b", 3), paragraphs(send + "c", 2),
                                "Letzte Zeile " + send + "."];
                Fixture.scriptAnswer(pieces, 250);
                const answerRow = session.messages.count + 1;
                session.inputText = "Noch eine Frage " + send;
                session.sendMessage();
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
                compare(session.isAtBottom, true);
            }
        }

        function test_readerWhoScrolledUpStaysPut() {
            fillConversation(6);
            const list = named("conversation");
            tryCompare(session, "isAtBottom", true);
            Fixture.scriptAnswer([paragraphs("x", 2), paragraphs("y", 2), paragraphs("z", 2)], 400);
            const answerRow = session.messages.count + 1;
            session.inputText = "noch eine";
            session.sendMessage();
            tryVerify(() => bubble(answerRow) && bubble(answerRow).text.length > 0, 3000);
            // The reader turns the wheel up, well away from the end.
            for (let i = 0; i < 4; ++i)
                mouseWheel(list, list.width / 2, list.height / 2, 0, 120, Qt.NoButton, Qt.NoModifier, 40);
            tryCompare(session, "isAtBottom", false);
            tryVerify(() => !list.moving);
            const readerPosition = list.contentY;
            tryCompare(session, "isLoading", false, 5000);
            wait(300);
            compare(list.contentY, readerPosition, "pieces do not pull a reader who scrolled up");

            Fixture.scriptAnswer(["Ende"], 0);
            session.inputText = "letzte Frage";
            session.sendMessage();
            tryVerify(() => gapBelowEnd() <= 1, 3000, "the own message brings the reader down");
            tryCompare(session, "isLoading", false, 5000);
            tryCompare(session, "isAtBottom", true);
            tryVerify(() => gapBelowEnd() <= 1, 1000);
        }

        // Everything a mouse can press in the chat screen is reached with Tab, and every button that shows
        // only a symbol has a German name for screen readers.
        function test_keyboardReachesEveryControl() {
            session.addAttachment(Fixture.document("notiz.txt"));
            tryCompare(named("pendingStrip"), "count", 1);
            view.focusQuestionField();
            keyClick(Qt.Key_H);
            const reached = {};
            for (let i = 0; i < 12; ++i) {
                keyClick(Qt.Key_Tab);
                const item = host.Window.activeFocusItem;
                if (item && item.objectName !== "")
                    reached[item.objectName] = item.Accessible.name;
            }
            compare(reached["sendButton"], "Senden");
            compare(reached["removeButton"], "Entfernen");
            compare(reached["logoButton"], "Verkleinern");
            compare(reached["menuButton"], "Menü");
            compare(reached["inputField"], "Frag mich etwas...");
            const unnamed = [];
            let buttons = 0;
            function visit(item) {
                if (item instanceof AbstractButton && item.text === "") {
                    ++buttons;
                    if (!item.Accessible.name)
                        unnamed.push(item.objectName || String(item));
                }
                for (let i = 0; i < item.children.length; ++i)
                    visit(item.children[i]);
            }
            visit(view);
            verify(buttons >= 5, "found " + buttons + " symbol buttons");
            compare(unnamed, [], "every symbol button has a name");

            // The menu opens from the keyboard and closes with Escape.
            named("menuButton").forceActiveFocus(Qt.TabFocusReason);
            keyClick(Qt.Key_Space);
            const menu = named("mainMenu");
            tryCompare(menu, "opened", true);
            keyClick(Qt.Key_Escape);
            tryCompare(menu, "visible", false);

            // Space on the focused remove button removes the attachment.
            while (host.Window.activeFocusItem.objectName !== "removeButton")
                keyClick(Qt.Key_Tab);
            keyClick(Qt.Key_Space);
            compare(session.pendingAttachments.count, 0);

            Fixture.scriptAnswer(["a", "b", "c"], 400);
            view.focusQuestionField();
            keyClick(Qt.Key_Return);
            compare(session.isLoading, true);
            tryVerify(() => bubble(1) && bubble(1).text === "a", 3000);
            keyClick(Qt.Key_Tab);
            compare(host.Window.activeFocusItem.objectName, "stopButton");
            compare(host.Window.activeFocusItem.Accessible.name, "Stoppen");
            keyClick(Qt.Key_Space);
            compare(session.isLoading, false);
            compare(host.Window.activeFocusItem.objectName, "inputField", "the keyboard goes back to typing");
        }

        // A screen reader hears the streamed answer once, whole, when it has ended; the bubble it streams
        // into stays out of its reach until then.
        function test_answerIsAnnouncedOnceItEnds() {
            const state = named("chatScreen");
            const announcer = named("announcer");
            const told = [];
            const listen = () => {
                if (state.announcement !== "")
                    told.push(state.announcement);
            };
            state.announcementChanged.connect(listen);
            Fixture.scriptAnswer(["Erstens", " zweitens", " drittens."], 150);
            session.inputText = "Zähl auf";
            session.sendMessage();
            tryVerify(() => bubble(1) && bubble(1).text === "Erstens", 3000);
            compare(announcer.visible, false);
            compare(findChild(bubble(1), "markdown").Accessible.ignored, true, "the streaming answer is hidden");
            tryCompare(session, "isLoading", false, 5000);
            state.announcementChanged.disconnect(listen);
            compare(told, ["Erstens zweitens drittens."]);
            compare(announcer.visible, true);
            compare(announcer.Accessible.role, Accessible.AlertMessage);
            compare(announcer.Accessible.name, "Erstens zweitens drittens.");
            compare(findChild(bubble(1), "markdown").Accessible.ignored, false);

            // The reply refusing pictures is told as well.
            session.addAttachment(Fixture.picture("bild.png"));
            tryCompare(session.pendingAttachments, "count", 1);
            session.sendMessage();
            tryVerify(() => state.announcement.startsWith("Entschuldigung"), 3000);
        }

        // The picture is cut to the tile's rounded corners; the document name ends in an ellipsis.
        function test_tilesKeepTheirShape() {
            session.addAttachment(Fixture.picture("blau.png"));
            session.addAttachment(Fixture.document("ein-sehr-langer-dateiname-fuer-den-quartalsbericht.txt"));
            const strip = named("pendingStrip");
            tryCompare(strip, "count", 2);
            let tile = null;
            tryVerify(() => {
                tile = [0, 1].map(i => strip.itemAtIndex(i)).find(t => t && t.isImage) || null;
                return tile !== null;
            });
            waitForRendering(strip);
            wait(200);
            const pixel = (x, y) => {
                const p = tile.mapToItem(host, x, y);
                return grabImage(host).pixel(p.x, p.y);
            };
            const blue = colour => colour.b > 0.6 && colour.r < 0.4;
            tryVerify(() => blue(pixel(40, 40)), 2000, "the picture fills the tile");
            verify(!blue(pixel(1, 1)), "the corner is cut away: " + pixel(1, 1));

            const documentTile = [0, 1].map(i => strip.itemAtIndex(i)).find(t => !t.isImage);
            const name = findChild(documentTile, "documentName");
            compare(name.truncated, true);
            compare(name.elide, Text.ElideRight);
        }

        // One fill over the whole header; the input bar's fill and the pending strip stay inside the
        // pane's rounded corners and edges.
        function test_fillsStayInsideThePane() {
            for (let i = 0; i < 7; ++i)
                session.addAttachment(Fixture.document("datei" + i + ".txt"));
            const strip = named("pendingStrip");
            tryCompare(strip, "count", 7);
            strip.positionViewAtEnd();
            waitForRendering(view);
            wait(100);
            const image = grabImage(host);
            const stripY = strip.mapToItem(host, 0, strip.height / 2).y;
            // The window's own colour, where nothing is drawn.
            const clear = image.pixel(2, 2);
            const outside = image.pixel(host.margin / 2, stripY);
            compare(String(outside), String(clear), "nothing of the strip in the margin");
            const bottomLeft = image.pixel(host.margin + 1, host.height - host.margin - 2);
            compare(String(bottomLeft), String(clear), "the input bar's corner is rounded away");

            const header = findChild(view, "headerBackground");
            const top = header.mapToItem(host, 200, header.height - 24);
            const low = header.mapToItem(host, 200, header.height - 6);
            const a = image.pixel(top.x, top.y);
            const b = image.pixel(low.x, low.y);
            const close = (x, y) => Math.abs(x - y) <= 2 / 255;
            verify(close(a.r, b.r) && close(a.g, b.g) && close(a.b, b.b), "one fill: " + a + " above, " + b + " below");
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

        // The empty space of the conversation and the input bar's background move the window; the move
        // ends with the release.
        function test_backgroundMovesTheWindow_data() {
            return [{tag: "conversation", name: "conversationBackground"},
                    {tag: "input bar", name: "inputBarBackground"},
                    {tag: "header", name: "headerBackground"}];
        }
        function test_backgroundMovesTheWindow(data) {
            const area = named(data.name);
            const window = host.Window.window;
            const start = Qt.point(window.x, window.y);
            const x = 6, y = area.height / 2;
            mousePress(area, x, y);
            mouseMove(area, x + 30, y + 20);
            compare(area.dragging, true);
            compare(Qt.point(window.x, window.y), Qt.point(start.x + 30, start.y + 20));
            mouseRelease(area, x, y);
            compare(area.dragging, false);
            const moved = Qt.point(window.x, window.y);
            mouseMove(area, x + 60, y + 60);
            compare(Qt.point(window.x, window.y), moved, "released: the window stays");
            window.x = start.x;
            window.y = start.y;
        }
    }
}
