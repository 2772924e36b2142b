#include "Services/InfomaniakAPI.h"
#include "StreamCollector.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QBuffer>
#include <QImage>
#include <QJsonArray>
#include <QJsonObject>

namespace {

Attachment document(const QString &path)
{
    return Attachment(AttachmentType::document(QUrl::fromLocalFile(path), QFileInfo(path).fileName()));
}

Attachment picture(int width, int height)
{
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(QColor(200, 40, 40, 255));
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return Attachment(AttachmentType::image(ImageData::fromBytes(png)));
}

class Turn {
public:
    Turn()
    {
        if (!m_provider.listen())
            qFatal("cannot listen");
        qputenv("QUILLMOOR_API_BASE_URL", m_provider.baseUrl().toString().toUtf8());
        qputenv("QUILLMOOR_API_KEY", "k");
    }
    // Sends one turn and returns the body the provider received.
    QJsonObject send(const QString &message, const QList<Attachment> &attachments,
                     const std::optional<QString> &prompt = QStringLiteral("Prompt"),
                     const QList<HistoryEntry> &history = {})
    {
        m_provider.enqueueChat(TestProvider::Response::sse({QStringLiteral("ok")}));
        const InfomaniakAPI api = InfomaniakAPI::fromEnvironment();
        const CollectedStream result = readAll(
            api.sendStreamingMessage(message, attachments, {}, QStringLiteral("qwen3"), prompt, history));
        if (result.error)
            qWarning() << result.error->fullText();
        return m_provider.requests().last().json();
    }

private:
    TestProvider m_provider;
};

QJsonValue userContent(const QJsonObject &body)
{
    return body[QStringLiteral("messages")].toArray().last()[QStringLiteral("content")];
}

QString systemContent(const QJsonObject &body)
{
    return body[QStringLiteral("messages")][0][QStringLiteral("content")].toString();
}

} // namespace

class TestChatRequest : public QObject {
    Q_OBJECT
private slots:
    // The OpenAI client libraries' variables name a server too; the app's own win over them. The key of
    // OPENAI_API_KEY only goes to a server named in the environment. The question of a turn with knowledge
    // is embedded with QUILLMOOR_EMBEDDING_MODEL when it is set.
    void serverKeyAndEmbeddingModelFromTheEnvironment_data()
    {
        QTest::addColumn<QStringList>("variables"); // NAME=value; "ours" and "theirs" stand for the servers
        QTest::addColumn<QString>("server");        // which server was asked: "ours", "theirs" or ""
        QTest::addColumn<QByteArray>("authorization");
        QTest::addColumn<QString>("embeddingModel");
        QTest::addRow("OpenAI variables alone")
            << QStringList{"OPENAI_BASE_URL=theirs", "OPENAI_API_KEY=sk-theirs"} << "theirs"
            << QByteArray("Bearer sk-theirs") << "bge_multilingual_gemma2";
        QTest::addRow("ours win over them")
            << QStringList{"QUILLMOOR_API_BASE_URL=ours", "QUILLMOOR_API_KEY=k-ours",
                           "OPENAI_BASE_URL=theirs", "OPENAI_API_KEY=sk-theirs"}
            << "ours" << QByteArray("Bearer k-ours") << "bge_multilingual_gemma2";
        QTest::addRow("our server, their key")
            << QStringList{"QUILLMOOR_API_BASE_URL=ours", "OPENAI_API_KEY=sk-theirs"} << "ours"
            << QByteArray("Bearer sk-theirs") << "bge_multilingual_gemma2";
        QTest::addRow("an empty key of ours still wins")
            << QStringList{"OPENAI_BASE_URL=theirs", "QUILLMOOR_API_KEY=", "OPENAI_API_KEY=sk-theirs"}
            << "theirs" << QByteArray("Bearer") << "bge_multilingual_gemma2";
        QTest::addRow("embedding model")
            << QStringList{"OPENAI_BASE_URL=theirs", "QUILLMOOR_EMBEDDING_MODEL=nomic-embed-text"} << "theirs"
            << QByteArray("Bearer") << "nomic-embed-text";
        QTest::addRow("their key alone stays home")
            << QStringList{"OPENAI_API_KEY=sk-theirs"} << "" << QByteArray() << "bge_multilingual_gemma2";
    }
    void serverKeyAndEmbeddingModelFromTheEnvironment()
    {
        QFETCH(QStringList, variables);
        QFETCH(QString, server);
        QFETCH(QByteArray, authorization);
        QFETCH(QString, embeddingModel);
        TestProvider ours;
        TestProvider theirs;
        QVERIFY(ours.listen() && theirs.listen());
        for (const QString &variable : variables) {
            const QString name = variable.section(QLatin1Char('='), 0, 0);
            QString value = variable.section(QLatin1Char('='), 1);
            if (value == QLatin1String("ours") || value == QLatin1String("theirs"))
                value =
                    (value == QLatin1String("ours") ? ours : theirs).baseUrl().toString() + QLatin1Char('/');
            qputenv(name.toUtf8().constData(), value.toUtf8());
        }
        const InfomaniakAPI api = InfomaniakAPI::fromEnvironment();
        TestEnvironment::isolate();
        QCOMPARE(api.hasCustomEndpoint(), !server.isEmpty());
        if (server.isEmpty()) {
            QVERIFY(api.apiKey() != QStringLiteral("sk-theirs"));
            return;
        }

        const QList<DocumentChunk> knowledge{{QStringLiteral("Rechnung"), QList<double>(64, 0.1)}};
        const CollectedStream result = readAll(api.sendStreamingMessage(
            QStringLiteral("Frage"), {}, knowledge, QStringLiteral("qwen3"), std::nullopt, {}));
        QVERIFY(!result.error);
        TestProvider &asked = server == QLatin1String("ours") ? ours : theirs;
        TestProvider &other = server == QLatin1String("ours") ? theirs : ours;
        QVERIFY(other.requests().isEmpty());
        QCOMPARE(asked.requests("/chat/completions").size(), 1);
        QCOMPARE(asked.requests("/chat/completions").first().headers.value("authorization"), authorization);
        QCOMPARE(asked.requests("/embeddings").size(), 1);
        QCOMPARE(asked.requests("/embeddings").first().json().value("model").toString(), embeddingModel);
    }

    void bodyShape()
    {
        Turn turn;
        const QJsonObject body = turn.send(QStringLiteral("Hallo"), {});
        QCOMPARE(body.keys(), QStringList({"messages", "model", "stream", "temperature"}));
        QCOMPARE(body.value(QStringLiteral("model")).toString(), QStringLiteral("qwen3"));
        QCOMPARE(body.value(QStringLiteral("temperature")).toDouble(), 0.4);
        QCOMPARE(body.value(QStringLiteral("stream")).toBool(), true);
        const QJsonArray messages = body.value(QStringLiteral("messages")).toArray();
        QCOMPARE(messages.size(), 2);
        QCOMPARE(messages[0].toObject().keys(), QStringList({"content", "role"}));
        QCOMPARE(messages[0].toObject().value(QStringLiteral("role")).toString(), QStringLiteral("system"));
        QCOMPARE(messages[1].toObject(), (QJsonObject{{"role", "user"}, {"content", "Hallo"}}));
    }

    void systemPrompt()
    {
        Turn turn;
        const QString sentence = InfomaniakAPI::PlainStyleSentence;
        QCOMPARE(systemContent(turn.send(QStringLiteral("x"), {}, std::nullopt)),
                 QStringLiteral("Du bist ein hilfreicher und kompetenter Assistent.\n") + sentence);
        QCOMPARE(systemContent(turn.send(QStringLiteral("x"), {}, QString())),
                 QStringLiteral("\n") + sentence);
    }

    void historyIsSentWhole()
    {
        Turn turn;
        QList<HistoryEntry> history;
        const QString longText(50000, QLatin1Char('w'));
        for (int i = 0; i < 300; ++i)
            history.append({i % 2 ? QStringLiteral("assistant") : QStringLiteral("user"),
                            i == 7 ? longText : QStringLiteral("Nachricht %1").arg(i)});
        const QJsonArray messages = turn.send(QStringLiteral("x"), {}, QStringLiteral("P"), history)
                                        .value(QStringLiteral("messages"))
                                        .toArray();
        QCOMPARE(messages.size(), 302);
        for (int i = 0; i < 300; ++i) {
            QCOMPARE(messages[i + 1].toObject().value(QStringLiteral("role")).toString(), history[i].role);
            QCOMPARE(messages[i + 1].toObject().value(QStringLiteral("content")).toString(),
                     history[i].content);
        }
    }

    void documentsBecomeTextBlocks()
    {
        Turn turn;
        const QString notes =
            TestEnvironment::writeFile(QStringLiteral("notes.md"), "# Notizen\nZeile mit Umlaut: ä");
        const QString empty = TestEnvironment::writeFile(QStringLiteral("leer.txt"), "");
        const QString latin1 = TestEnvironment::writeFile(QStringLiteral("alt.txt"), "Gr\xfc\xdf"
                                                                                     "e");
        const QString csv = TestEnvironment::writeFile(QStringLiteral("daten.csv"), "a,b\n1,2\n");
        const QJsonValue content = userContent(
            turn.send(QString(), {document(notes), document(empty), document(latin1), document(csv)}));
        QVERIFY(content.isString());
        QCOMPARE(content.toString(),
                 QStringLiteral("\n\n--- Dokument: notes.md ---\n# Notizen\nZeile mit Umlaut: ä\n"
                                "\n\n--- Dokument: daten.csv ---\na,b\n1,2\n\n"));
        const QJsonValue withText = userContent(turn.send(QStringLiteral("Frage"), {document(notes)}));
        QVERIFY(withText.toString().startsWith(QStringLiteral("Frage\n\n--- Dokument: notes.md ---\n")));

        // Long documents are cut at 30,000 characters, counted as the user sees them.
        const QString longFile = TestEnvironment::writeFile(QStringLiteral("lang.txt"),
                                                            QStringLiteral("🇨🇭").repeated(30001).toUtf8());
        const QString cut = userContent(turn.send(QString(), {document(longFile)})).toString();
        const QString note =
            QStringLiteral("\n\n[... Text wurde gekürzt, da das Dokument zu lang für den Kontext ist ...]");
        QVERIFY(cut.endsWith(note + QLatin1Char('\n')));
        QCOMPARE(cut.count(QStringLiteral("🇨🇭")), 30000);
    }

    void picturesBecomeJpegParts()
    {
        Turn turn;
        const QString notes = TestEnvironment::writeFile(QStringLiteral("n.txt"), "Text");
        const QJsonValue content =
            userContent(turn.send(QStringLiteral("Was ist das?"), {picture(64, 48), document(notes)}));
        QVERIFY(content.isArray());
        const QJsonArray parts = content.toArray();
        QCOMPARE(parts.size(), 2);
        QCOMPARE(
            parts[0].toObject(),
            (QJsonObject{{"type", "text"}, {"text", "Was ist das?\n\n--- Dokument: n.txt ---\nText\n"}}));
        QCOMPARE(parts[1].toObject().value(QStringLiteral("type")).toString(), QStringLiteral("image_url"));
        const QString url =
            parts[1].toObject()[QStringLiteral("image_url")].toObject()[QStringLiteral("url")].toString();
        const QString prefix = QStringLiteral("data:image/jpeg;base64,");
        QVERIFY(url.startsWith(prefix));
        const QByteArray jpeg = QByteArray::fromBase64(url.mid(prefix.size()).toLatin1());
        QVERIFY(!url.contains(QLatin1Char('\n')));
        QCOMPARE(QImage::fromData(jpeg, "JPEG").size(), QSize(64, 48));

        // Several pictures follow the text part in the order they were attached.
        const QJsonValue order =
            userContent(turn.send(QStringLiteral("a"), {picture(8, 8), picture(16, 16)}));
        QCOMPARE(order.toArray().size(), 3);
        const QString second = order.toArray()[2]
                                   .toObject()[QStringLiteral("image_url")]
                                   .toObject()[QStringLiteral("url")]
                                   .toString();
        QCOMPARE(
            QImage::fromData(QByteArray::fromBase64(second.mid(prefix.size()).toLatin1()), "JPEG").size(),
            QSize(16, 16));
    }
};

QUILLMOOR_TEST_MAIN(TestChatRequest)
#include "tst_chatrequest.moc"
