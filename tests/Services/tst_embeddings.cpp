#include "ConsoleCapture.h"
#include "ProviderClient.h"
#include "Services/EmbeddingResponse.h"
#include "TestMain.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkReply>

#include <qcoro/qcorotask.h>

namespace {

EmbeddingsResult embed(const InfomaniakAPI &client, const QStringList &texts = {QStringLiteral("x")})
{
    return QCoro::waitFor(client.createEmbeddings(texts, QStringLiteral("m"), QStringLiteral("index")));
}

QByteArray fixture(const QString &name)
{
    QFile file(TestEnvironment::fixture(QStringLiteral("embeddings/") + name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestEmbeddings : public QObject {
    Q_OBJECT
private slots:
    // The request as the provider reads it and the console's lines around it. No texts are sent all the
    // same, and an empty answer is a success.
    void request()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        ConsoleCapture console;
        const auto client = clientFor(provider);
        QVERIFY(embed(*client, {QStringLiteral("Rechnung Mai"), QStringLiteral("Äpfel/Birnen")}).ok());
        provider.enqueueEmbeddings(TestProvider::Response::json(200, R"({"data":[]})"));
        QVERIFY(embed(*client, {}).ok());
        const TestProvider::Request request = provider.requests().first();
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.path, provider.baseUrl().path().toUtf8() + "/embeddings");
        QCOMPARE(request.headers.value("authorization"), QByteArray("Bearer test-key"));
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
        QCOMPARE(request.json(), (QJsonObject{{"model", "m"},
                                              {"mode", "index"},
                                              {"input", QJsonArray{"Rechnung Mai", "Äpfel/Birnen"}}}));
        QCOMPARE(provider.requests().last().json().value("input").toArray(), QJsonArray());
        QCOMPARE(console.lines(), QStringList({"🔢 Embedding 2 texts with model=m mode=index",
                                               "✅ Embedding success: 2 vectors returned",
                                               "🔢 Embedding 0 texts with model=m mode=index",
                                               "✅ Embedding success: 0 vectors returned"}));
    }

    // Every answer through the real call. A 200 is decoded: the outcome is "vectors x dimensions: first
    // number", or the decoder's error domain and code. Any other status is the provider's error with the
    // body ("Unknown error" when it is not UTF-8), whatever class of failure Qt sorts the status into. No
    // server (status 0) and silence (-1) are the transport's errors, the time-out one of its own.
    void answers_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("outcome");
        const QString keyNotFound =
            QStringLiteral("EmbeddingResponse %1").arg(EmbeddingResponse::KeyNotFound);
        const QString typeMismatch =
            QStringLiteral("EmbeddingResponse %1").arg(EmbeddingResponse::TypeMismatch);
        QTest::addRow("mistral") << 200 << fixture("mistral_embed_2x1024.json")
                                 << "2x1024: -0.0249176025390625";
        QTest::addRow("openai float")
            << 200 << fixture("openai_te3small_512d_float.json") << "1x512: 0.009219426";
        QTest::addRow("openai base64") << 200 << fixture("openai_te3small_base64.json") << typeMismatch;
        QTest::addRow("extra fields ignored")
            << 200 << QByteArray(R"({"data":[{"embedding":[1,2.5],"index":0}],"x":1})") << "1x2: 1";
        QTest::addRow("no data") << 200 << QByteArray(R"({"object":"list"})") << keyNotFound;
        QTest::addRow("no embedding") << 200 << QByteArray(R"({"data":[{"index":0}]})") << keyNotFound;
        QTest::addRow("null in vector")
            << 200 << QByteArray(R"({"data":[{"embedding":[1,null]}]})") << typeMismatch;
        QTest::addRow("data not array") << 200 << QByteArray(R"({"data":{}})") << typeMismatch;
        QTest::addRow("top-level array") << 200 << QByteArray("[1]") << typeMismatch;
        QTest::addRow("not JSON") << 200 << QByteArray("<html>busy</html>")
                                  << QStringLiteral("QJsonParseError %1").arg(QJsonParseError::IllegalValue);
        const QByteArray tooLong(R"({"error":{"message":"Input is too long: 9000 > 8192 tokens"}})");
        QTest::addRow("400 input too long") << 400 << tooLong << QString::fromUtf8(tooLong);
        QTest::addRow("401") << 401 << QByteArray("unauthorized") << "unauthorized";
        QTest::addRow("404") << 404 << QByteArray("no such model %1") << "no such model %1";
        QTest::addRow("407") << 407 << QByteArray("proxy says no") << "proxy says no";
        QTest::addRow("418") << 418 << QByteArray("short and stout") << "short and stout";
        QTest::addRow("429 plain text") << 429 << QByteArray("Too many, slow down") << "Too many, slow down";
        QTest::addRow("500 not UTF-8") << 500 << QByteArray("\xff\xfe broken") << "Unknown error";
        QTest::addRow("503 empty") << 503 << QByteArray() << "";
        QTest::addRow("204 no content") << 204 << QByteArray() << "";
        QTest::addRow("no server")
            << 0 << QByteArray()
            << QStringLiteral("QNetworkReply %1").arg(QNetworkReply::ConnectionRefusedError);
        QTest::addRow("silence") << -1 << QByteArray()
                                 << QStringLiteral("QNetworkReply %1").arg(QNetworkReply::TimeoutError);
    }
    void answers()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, outcome);
        auto provider = std::make_unique<TestProvider>();
        QVERIFY(provider->listen());
        TestProvider::Response response = TestProvider::Response::text(status, body, "application/json");
        response.neverAnswer = status < 0;
        provider->enqueueEmbeddings(response);
        const auto client = clientFor(*provider, status < 0 ? 300 : 60000);
        if (status == 0)
            provider.reset();
        ConsoleCapture console;
        const EmbeddingsResult result = embed(*client);
        if (status > 0 && status != 200) {
            const QString code = QString::number(status);
            QCOMPARE(result.error.value_or(ProviderError{}),
                     ProviderError::api(status, QStringLiteral("Embedding request failed (HTTP ") + code +
                                                    QStringLiteral("): ") + outcome));
            QCOMPARE(console.lines().last(),
                     QStringLiteral("❌ Embedding API Error (HTTP ") + code + QStringLiteral("): ") + outcome);
            return;
        }
        QCOMPARE(console.text().contains(QStringLiteral("✅")), result.ok());
        if (result.ok())
            QCOMPARE(QStringLiteral("%1x%2: %3")
                         .arg(result.vectors.size())
                         .arg(result.vectors[0].size())
                         .arg(result.vectors[0][0], 0, 'g', 15),
                     outcome);
        else
            QCOMPARE(result.error->domain + QLatin1Char(' ') + QString::number(result.error->code), outcome);
    }
};

QUILLMOOR_TEST_MAIN(TestEmbeddings)
#include "tst_embeddings.moc"
