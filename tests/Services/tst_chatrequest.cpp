#include "ProviderClient.h"
#include "StreamCollector.h"
#include "TestMain.h"

#include <QBuffer>
#include <QImage>
#include <QJsonArray>

namespace {

Attachment document(const QString &name, const QByteArray &bytes)
{
    const QString path = TestEnvironment::writeFile(name, bytes);
    return Attachment(AttachmentType::document(QUrl::fromLocalFile(path), name));
}

Attachment picture(int width, int height)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::red);
    image.save(&buffer, "PNG");
    return Attachment(AttachmentType::image(ImageData::fromBytes(png)));
}

// Sends one turn to a loopback provider and returns the body it received.
QJsonObject sent(const QString &message, const QList<Attachment> &attachments,
                 const std::optional<QString> &prompt = QStringLiteral("Prompt"),
                 const QList<HistoryEntry> &history = {})
{
    TestProvider provider;
    if (!provider.listen())
        qFatal("cannot listen");
    readAll(clientFor(provider)->sendStreamingMessage(message, attachments, {}, QStringLiteral("qwen3"),
                                                      prompt, history));
    return provider.requests().value(0).json();
}

QJsonValue userContent(const QJsonObject &body)
{
    return body[QStringLiteral("messages")].toArray().last()[QStringLiteral("content")];
}

// The size of the JPEG picture in a content part.
QSize jpegSize(const QJsonValue &part)
{
    const QString url = part[QStringLiteral("image_url")][QStringLiteral("url")].toString();
    const QString prefix = QStringLiteral("data:image/jpeg;base64,");
    if (!url.startsWith(prefix) || url.contains(QLatin1Char('\n')))
        return {};
    return QImage::fromData(QByteArray::fromBase64(url.mid(prefix.size()).toLatin1()), "JPEG").size();
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

    // The whole history goes along, however long, between the system message and the question.
    void bodyShape()
    {
        QList<HistoryEntry> history;
        for (int i = 0; i < 300; ++i)
            history.append(
                {i % 2 ? QStringLiteral("assistant") : QStringLiteral("user"),
                 i == 7 ? QString(50000, QLatin1Char('w')) : QStringLiteral("Nachricht %1").arg(i)});
        const QJsonObject body = sent(QStringLiteral("Hallo"), {}, QStringLiteral("P"), history);
        QCOMPARE(body.keys(), QStringList({"messages", "model", "stream", "temperature"}));
        QCOMPARE(body.value(QStringLiteral("model")).toString(), QStringLiteral("qwen3"));
        QCOMPARE(body.value(QStringLiteral("temperature")).toDouble(), 0.4);
        QCOMPARE(body.value(QStringLiteral("stream")).toBool(), true);
        const QJsonArray messages = body.value(QStringLiteral("messages")).toArray();
        QCOMPARE(messages.size(), 302);
        QCOMPARE(messages[0].toObject().keys(), QStringList({"content", "role"}));
        QCOMPARE(messages[0][QStringLiteral("role")].toString(), QStringLiteral("system"));
        for (int i = 0; i < 300; ++i)
            QCOMPARE(messages[i + 1].toObject(),
                     (QJsonObject{{"role", history[i].role}, {"content", history[i].content}}));
        QCOMPARE(messages[301].toObject(), (QJsonObject{{"role", "user"}, {"content", "Hallo"}}));

        // Without a prompt the default one stands first; an empty one leaves its line empty.
        const auto system = [](const QJsonObject &sentBody) {
            return sentBody[QStringLiteral("messages")][0][QStringLiteral("content")].toString();
        };
        const QString sentence = InfomaniakAPI::PlainStyleSentence;
        QCOMPARE(system(sent(QStringLiteral("x"), {}, std::nullopt)),
                 QStringLiteral("Du bist ein hilfreicher und kompetenter Assistent.\n") + sentence);
        QCOMPARE(system(sent(QStringLiteral("x"), {}, QString())), QStringLiteral("\n") + sentence);
    }

    // Documents follow the question as text blocks; empty or unreadable ones are left out. (How long ones are
    // cut is the text extraction test's.)
    void documentsBecomeTextBlocks()
    {
        const QJsonValue content = userContent(
            sent(QStringLiteral("Frage"),
                 {document(QStringLiteral("notes.md"), "# Notizen\nZeile mit Umlaut: ä"),
                  document(QStringLiteral("leer.txt"), ""), document(QStringLiteral("alt.txt"), "Gr\xfc\xdf"),
                  document(QStringLiteral("daten.csv"), "a,b\n1,2\n")}));
        QCOMPARE(content.toString(),
                 QStringLiteral("Frage\n\n--- Dokument: notes.md ---\n# Notizen\nZeile mit Umlaut: ä\n"
                                "\n\n--- Dokument: daten.csv ---\na,b\n1,2\n\n"));
    }

    // With pictures the question and the documents' text are the first part, the pictures follow as JPEG
    // in the order they were attached.
    void picturesBecomeJpegParts()
    {
        const QJsonArray parts =
            userContent(sent(QStringLiteral("Was ist das?"),
                             {picture(64, 48), document(QStringLiteral("n.txt"), "Text"), picture(16, 8)}))
                .toArray();
        QCOMPARE(parts.size(), 3);
        QCOMPARE(
            parts[0].toObject(),
            (QJsonObject{{"type", "text"}, {"text", "Was ist das?\n\n--- Dokument: n.txt ---\nText\n"}}));
        QCOMPARE(parts[1][QStringLiteral("type")].toString(), QStringLiteral("image_url"));
        QCOMPARE(jpegSize(parts[1]), QSize(64, 48));
        QCOMPARE(jpegSize(parts[2]), QSize(16, 8));
    }
};

QUILLMOOR_TEST_MAIN(TestChatRequest)
#include "tst_chatrequest.moc"
