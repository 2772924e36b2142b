#include "../Services/KnowledgeTestUtil.h"
#include "CaseFiles.h"
#include "SessionFixture.h"
#include "TestMain.h"

#include <QJsonArray>
#include <QPainter>
#include <QPdfWriter>
#include <QSignalSpy>
#include <QThreadPool>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using Response = TestProvider::Response;

class TestChatSession : public QObject {
    Q_OBJECT
private slots:
    // Nothing to send does nothing; a text of blanks goes as it stands. The answer streams into the message
    // that comes with the turn, and the next turn carries the conversation as its history, in the body
    // every turn sends.
    void turnsAndHistory()
    {
        SessionFixture f;
        f.settings.setSelectedModel(QStringLiteral("mistral3"));
        f.settings.setMasterPrompt(QString()); // an empty prompt leaves its line empty
        f.session->sendMessage();
        QVERIFY(f.messages().isEmpty());
        QVERIFY(!f.session->isLoading());
        f.provider.enqueueChat(Response::sse({QStringLiteral("Hal"), QStringLiteral("lo")}, true, 5));
        f.send(QStringLiteral("Erste Frage"));
        QVERIFY(f.session->isLoading());
        QCOMPARE(f.session->inputText(), QString());
        QCOMPARE(f.messages().size(), 1); // the answer's message comes with the turn, a moment later
        QVERIFY(f.waitForTurn());
        QCOMPARE(f.messages()[1].text(), QStringLiteral("Hallo"));

        f.provider.enqueueChat(Response::sse({QStringLiteral("Zwei")}));
        f.send(QStringLiteral("   "));
        QVERIFY(f.waitForTurn());
        QCOMPARE(CaseFiles::lines(f.provider.requests()[1].json()),
                 CaseFiles::expected(QStringLiteral("chatsession/second turn")));
    }

    // Knowledge files are read on threads of their own: a question asked while large documents are being
    // read leaves at once, before the first of them is done, instead of queueing behind them.
    void aTurnDoesNotWaitForKnowledgeFiles()
    {
        SessionFixture f;
        QThreadPool::globalInstance()->setMaxThreadCount(2);
        const QDir dir(TestEnvironment::home().path());
        const QString first = dir.filePath(QStringLiteral("Handbuch 0.pdf"));
        {
            QPdfWriter writer(first);
            writer.setResolution(72);
            QPainter painter(&writer);
            const QString page = QStringLiteral("Absatz: Wartung der Anlage im Werk Nord.\n").repeated(50);
            for (int number = 0; number < 150; ++number) {
                if (number > 0)
                    writer.newPage();
                painter.drawText(QRectF(50, 30, 500, 750), 0, page);
            }
        }
        for (const QString &name : {QStringLiteral("Handbuch 1.pdf"), QStringLiteral("Handbuch 2.pdf")})
            QVERIFY(QFile::copy(first, dir.filePath(name)));
        const auto extracted = [] {
            return int(KnowledgeTest::logMessages().filter(QStringLiteral("📄 PDFKit: Extracted")).size());
        };
        const int before = extracted();
        ConsoleCapture console;
        for (const QString &name : dir.entryList({QStringLiteral("Handbuch *.pdf")}))
            f.knowledge->addFile(QUrl::fromLocalFile(dir.filePath(name)));
        QTRY_VERIFY(console.text().contains(QStringLiteral("Extracting text from: Handbuch")));

        int extractedWhenAsked = -1;
        connect(&f.provider, &TestProvider::requestReceived, this, [&](const TestProvider::Request &request) {
            if (request.path.endsWith("/chat/completions") && extractedWhenAsked < 0)
                extractedWhenAsked = extracted() - before;
        });
        f.provider.enqueueChat(Response::sse({QStringLiteral("sofort")}));
        f.send(QStringLiteral("Wie warte ich die Anlage?"));
        QVERIFY(f.waitForTurn());
        QCOMPARE(extractedWhenAsked, 0);
        QCoro::waitFor(f.knowledge->waitUntilIdle());
        QCOMPARE(extracted() - before, 3);
    }

    // A turn that ends early keeps what came, and its answer stays in the conversation and its history: a
    // broken transfer fails the turn and notes the error in the answer (an HTTP error's note is the
    // command-line test's, through this same session); a stop is no failure, while the answer streams (the
    // request is aborted) or before the turn began, and leaves the answer empty.
    void turnEndsEarly_data()
    {
        QTest::addColumn<int>(
            "stop"); // 0: never, the transfer breaks; 1: while streaming; 2: before the turn
        QTest::addRow("the transfer breaks") << 0;
        QTest::addRow("stopped while the answer streams") << 1;
        QTest::addRow("stopped before the turn begins") << 2;
    }
    void turnEndsEarly()
    {
        QFETCH(int, stop);
        SessionFixture f;
        Response answer = Response::sse({QStringLiteral("Teil")}, false, stop ? 3000 : 0);
        answer.abortAfterPieces = !stop;
        f.provider.enqueueChat(answer);
        ConsoleCapture console;
        QSignalSpy finished(f.session.get(), &ChatSession::turnFinished);
        f.send(QStringLiteral("Frage"));
        if (stop == 1)
            QTRY_COMPARE(f.provider.requests().size(), 1);
        if (stop) {
            f.session->cancelStreaming();
            QVERIFY(!f.session->isLoading());
        }
        QVERIFY(finished.wait(10000));
        QCOMPARE(finished.first().at(0).toBool(), !stop);
        const QString description = finished.first().at(1).toString();
        const QString kept = stop ? QString() : QStringLiteral("Teil\n[Fehler: ") + description + u']';
        QCOMPARE(f.messages().last().text(), kept);
        if (!stop)
            QVERIFY(!description.isEmpty() &&
                    console.contains(QStringLiteral("Error sending message: ") + description));
        QTRY_COMPARE(f.provider.openConnections(), 0);
        QCOMPARE(f.provider.requests().size(), stop == 2 ? 0 : 1);

        f.provider.clearScript();
        f.provider.enqueueChat(Response::sse({QStringLiteral("ok")}));
        f.send(QStringLiteral("Weiter"));
        QVERIFY(f.waitForTurn());
        const QJsonArray messages = f.provider.requests().last().json()[QStringLiteral("messages")].toArray();
        QCOMPARE(messages.size(), 4);
        QCOMPARE(messages[2].toObject(), (QJsonObject{{"role", "assistant"}, {"content", kept}}));
    }

    // Pictures go to a model outside the catalogue. (The refusal of a model that cannot see is the
    // command-line test's, through this same session; documents alone go to any model: the view test sends
    // one.)
    void visionCheck()
    {
        SessionFixture f;
        f.settings.setSelectedModel(QStringLiteral("unbekannt"));
        f.attach(TestEnvironment::writePicture(QStringLiteral("Foto.PNG")));
        f.send(QStringLiteral("Und jetzt?"));
        QVERIFY(f.waitForTurn());
        QCOMPARE(f.provider.requests().size(), 1);
    }

    // Names and models are the user's text: a "%1" in them is printed as it stands.
    void userTextIsNeverAPlaceholder()
    {
        SessionFixture f;
        ConsoleCapture console;
        f.knowledge->addFile(QUrl::fromLocalFile(
            TestEnvironment::writeFile(QStringLiteral("Umsatz%1Liste%2%3.csv"), KnowledgeTest::csv(3))));
        QCoro::waitFor(f.knowledge->waitUntilIdle());
        f.settings.setSelectedModel(QStringLiteral("m%2x%1"));
        f.send(QStringLiteral("Was steht in der csv?"));
        QVERIFY(f.waitForTurn());

        // The log's lines and the console's, each with the name or model as it stands.
        const QStringList lines = KnowledgeTest::logMessages() + console.lines();
        for (const QString &line : CaseFiles::expected(QStringLiteral("chatsession/placeholders")))
            QVERIFY2(lines.contains(line), qPrintable(line));
    }

    // Whether a drop is a picture is decided by the file's header, never by its name or by reading it whole:
    // a pipe named like a picture (which would never end) is a document at once. A folder dropped with a
    // closing slash is named after the folder; the same file twice is two attachments.
    void attachmentIntake()
    {
        SessionFixture f;
        const QDir home(TestEnvironment::home().path());
        home.mkpath(QStringLiteral("Ordner"));
        const QString pipe = home.filePath(QStringLiteral("Kamera.webp"));
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        f.attach(TestEnvironment::writePicture(QStringLiteral("Foto.PNG")));
        const QStringList names{"bild.png", "scan.heic", "anim.gif", "Bericht.pdf", "Ordner", "Bericht.pdf"};
        const QList<QByteArray> contents{"not a picture", "heic", "GIF89a", "%PDF"};
        for (int i = 0; i < contents.size(); ++i)
            f.attach(TestEnvironment::writeFile(names[i], contents[i]));
        f.attach(home.filePath(QStringLiteral("Ordner")) + QLatin1Char('/'));
        f.attach(home.filePath(QStringLiteral("Bericht.pdf")));
        f.session->addAttachment(QUrl::fromLocalFile(pipe));
        QTRY_COMPARE(f.session->pendingAttachments()->size(), 8);
        const QList<Attachment> pending = f.session->pendingAttachments()->list();
        QVERIFY(pending[0].type().isImage());
        for (int i = 1; i < pending.size(); ++i) {
            QVERIFY(pending[i].type().isDocument());
            QCOMPARE(pending[i].type().name(), i < 7 ? names[i - 1] : QStringLiteral("Kamera.webp"));
        }
        QVERIFY(!(pending[4] == pending[6]));

        const QUuid picture = pending[0].id();
        QCOMPARE(f.session->previews()->image(picture).size(), QSize(32, 24));
        QVERIFY(f.session->previews()->image(pending[1].id()).isNull());
        f.session->removePendingAttachment(0);
        QCOMPARE(f.session->pendingAttachments()->list().first().id(), pending[1].id());
        QVERIFY(f.session->previews()->image(picture).isNull());
        // Let a reader that did open the pipe see its end.
        const int writer = ::open(QFile::encodeName(pipe).constData(), O_WRONLY | O_NONBLOCK);
        if (writer >= 0)
            ::close(writer);
    }
};

QUILLMOOR_TEST_MAIN(TestChatSession)
#include "tst_chatsession.moc"
