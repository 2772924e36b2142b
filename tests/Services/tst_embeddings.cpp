#include "ConsoleCapture.h"
#include "Core/Console.h"
#include "Services/EmbeddingResponse.h"
#include "Services/InfomaniakAPI.h"
#include "TestMain.h"
#include "TestProvider.h"

#include <QFile>
#include <QJsonArray>
#include <QNetworkReply>
#include <QTemporaryFile>

#include <qcoro/qcorotask.h>

#include <cstdio>

class TestEmbeddings : public QObject {
    Q_OBJECT

    TestProvider *m_provider = nullptr;

    InfomaniakAPI api()
    {
        qputenv("QUILLMOOR_API_BASE_URL", m_provider->baseUrl().toString().toUtf8());
        qputenv("QUILLMOOR_API_KEY", "secret-key");
        InfomaniakAPI result = InfomaniakAPI::fromEnvironment();
        result.setTransferTimeoutMs(5000);
        return result;
    }

    // One text to the index, as knowledge files are sent.
    static EmbeddingsResult embed(const InfomaniakAPI &client)
    {
        return QCoro::waitFor(
            client.createEmbeddings({QStringLiteral("x")}, QStringLiteral("m"), QStringLiteral("index")));
    }

    static QByteArray fixture(const QString &name)
    {
        QFile file(TestEnvironment::fixture(QStringLiteral("embeddings/") + name));
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }

private slots:
    void init()
    {
        m_provider = new TestProvider(this);
        QVERIFY(m_provider->listen());
    }
    void cleanup()
    {
        delete m_provider;
        m_provider = nullptr;
    }

    void sendsTheRequestAndReadsTheVectors()
    {
        ConsoleCapture console;
        const InfomaniakAPI client = api();
        const EmbeddingsResult result = QCoro::waitFor(
            client.createEmbeddings({QStringLiteral("Rechnung Mai"), QStringLiteral("Äpfel/Birnen")},
                                    QStringLiteral("bge_multilingual_gemma2"), QStringLiteral("index")));
        QVERIFY(result.ok());
        QCOMPARE(result.vectors.size(), 2);
        QCOMPARE(result.vectors[0], TestProvider::bagOfWordsVector(QStringLiteral("Rechnung Mai")));

        const auto requests = m_provider->requests("/embeddings");
        QCOMPARE(requests.size(), 1);
        const TestProvider::Request &request = requests.first();
        QCOMPARE(request.method, QByteArray("POST"));
        QCOMPARE(request.path, m_provider->baseUrl().path().toUtf8() + "/embeddings");
        QCOMPARE(request.headers.value("authorization"), QByteArray("Bearer secret-key"));
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
        const QJsonObject body = request.json();
        QCOMPARE(body.size(), 3);
        QCOMPARE(body.value("model").toString(), QStringLiteral("bge_multilingual_gemma2"));
        QCOMPARE(body.value("mode").toString(), QStringLiteral("index"));
        QCOMPARE(body.value("input").toArray(),
                 QJsonArray({QStringLiteral("Rechnung Mai"), QStringLiteral("Äpfel/Birnen")}));

        QCOMPARE(console.text(),
                 QStringLiteral("🔢 Embedding 2 texts with model=bge_multilingual_gemma2 mode=index\n"
                                "✅ Embedding success: 2 vectors returned\n"));
    }

    void emptyInputIsSentAndEmptyDataIsNoError()
    {
        ConsoleCapture console;
        m_provider->enqueueEmbeddings(TestProvider::Response::json(200, R"({"data":[]})"));
        const InfomaniakAPI client = api();
        const EmbeddingsResult result =
            QCoro::waitFor(client.createEmbeddings({}, QStringLiteral("m"), QStringLiteral("query")));
        QVERIFY(result.ok());
        QVERIFY(result.vectors.isEmpty());
        QCOMPARE(m_provider->requests("/embeddings").first().json().value("input").toArray(), QJsonArray());
        QVERIFY(console.text().endsWith(QStringLiteral("✅ Embedding success: 0 vectors returned\n")));
    }

    void providerFixtures_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("vectors");
        QTest::addColumn<int>("dimensions");
        QTest::addColumn<double>("first");
        QTest::addRow("mistral") << "mistral_embed_2x1024.json" << 2 << 1024 << -0.0249176025390625;
        QTest::addRow("openai float") << "openai_te3small_512d_float.json" << 1 << 512 << 0.009219426;
        // An encoded vector is not a list of numbers.
        QTest::addRow("openai base64") << "openai_te3small_base64.json" << -1 << 0 << 0.0;
    }
    void providerFixtures()
    {
        QFETCH(QString, file);
        QFETCH(int, vectors);
        QFETCH(int, dimensions);
        QFETCH(double, first);
        ConsoleCapture console;
        m_provider->enqueueEmbeddings(TestProvider::Response::json(200, fixture(file)));
        const EmbeddingsResult result = embed(api());
        if (vectors < 0) {
            QVERIFY(!result.ok());
            QCOMPARE(result.error->domain, EmbeddingResponse::DecodingDomain);
            QCOMPARE(result.error->code, int(EmbeddingResponse::TypeMismatch));
            QVERIFY(!console.text().contains(QStringLiteral("✅")));
            return;
        }
        QVERIFY(result.ok());
        QCOMPARE(result.vectors.size(), vectors);
        for (const auto &vector : result.vectors)
            QCOMPARE(vector.size(), dimensions);
        QCOMPARE(result.vectors[0][0], first);
    }

    // Every answer other than 200 is the provider's error with its status and body, whatever class of
    // failure Qt sorts the status into.
    void httpErrorsCarryStatusAndBody_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addRow("400 input too long")
            << 400 << QByteArray(R"({"error":{"message":"Input is too long: 9000 > 8192 tokens"}})");
        QTest::addRow("401") << 401 << QByteArray("unauthorized");
        QTest::addRow("404") << 404 << QByteArray("no such model %1");
        QTest::addRow("407") << 407 << QByteArray("proxy says no");
        QTest::addRow("418") << 418 << QByteArray("short and stout");
        QTest::addRow("429 plain text") << 429 << QByteArray("Too many requests, slow down");
        QTest::addRow("500") << 500 << QByteArray("%1 %2 %3");
        QTest::addRow("503 empty") << 503 << QByteArray();
        QTest::addRow("204 no content") << 204 << QByteArray();
    }
    void httpErrorsCarryStatusAndBody()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        ConsoleCapture console;
        m_provider->enqueueEmbeddings(TestProvider::Response::text(status, body));
        const EmbeddingsResult result = embed(api());
        QVERIFY(!result.ok());
        const QString text = QString::fromUtf8(body);
        const QString code = QString::number(status);
        QCOMPARE(*result.error, ProviderError::api(status, QStringLiteral("Embedding request failed (HTTP ") +
                                                               code + QStringLiteral("): ") + text));
        QVERIFY(console.text().endsWith(QStringLiteral("❌ Embedding API Error (HTTP ") + code +
                                        QStringLiteral("): ") + text + QLatin1Char('\n')));
    }

    void bodyThatIsNotUtf8()
    {
        m_provider->enqueueEmbeddings(TestProvider::Response::text(500, QByteArray("\xff\xfe broken")));
        const EmbeddingsResult result = embed(api());
        QCOMPARE(*result.error, ProviderError::api(500, QStringLiteral("Embedding request failed (HTTP 500): "
                                                                       "Unknown error")));
    }

    void bodyThatIsNotJson()
    {
        ConsoleCapture console;
        m_provider->enqueueEmbeddings(TestProvider::Response::text(200, "<html>busy</html>"));
        const EmbeddingsResult result = embed(api());
        QVERIFY(!result.ok());
        QCOMPARE(result.error->domain, QStringLiteral("QJsonParseError"));
        QVERIFY(!console.text().contains(QStringLiteral("✅")));
    }

    void transportErrorsPassUnchanged()
    {
        InfomaniakAPI client = api();
        const quint16 closedPort = m_provider->port();
        delete m_provider;
        m_provider = nullptr;
        qputenv("QUILLMOOR_API_BASE_URL", QStringLiteral("http://127.0.0.1:%1/v1").arg(closedPort).toUtf8());
        client = InfomaniakAPI::fromEnvironment();
        const EmbeddingsResult result = embed(client);
        QVERIFY(!result.ok());
        QCOMPARE(result.error->domain, QStringLiteral("QNetworkReply"));
        QCOMPARE(result.error->code, int(QNetworkReply::ConnectionRefusedError));
        QVERIFY(!result.error->description.isEmpty());
    }

    void silenceEndsAtTheTransferTimeout()
    {
        TestProvider::Response silent;
        silent.neverAnswer = true;
        m_provider->enqueueEmbeddings(silent);
        InfomaniakAPI client = api();
        client.setTransferTimeoutMs(300);
        const EmbeddingsResult result = embed(client);
        QCOMPARE(*result.error,
                 (ProviderError{QStringLiteral("QNetworkReply"), int(QNetworkReply::TimeoutError),
                                QStringLiteral("The request timed out.")}));
    }

    void decoderShapes_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("code"); // 0: decodes
        QTest::addRow("extra fields ignored")
            << QByteArray(R"({"data":[{"embedding":[1,2.5],"index":0}],"x":1})") << 0;
        QTest::addRow("no data") << QByteArray(R"({"object":"list"})") << int(EmbeddingResponse::KeyNotFound);
        QTest::addRow("no embedding")
            << QByteArray(R"({"data":[{"index":0}]})") << int(EmbeddingResponse::KeyNotFound);
        QTest::addRow("null in vector")
            << QByteArray(R"({"data":[{"embedding":[1,null]}]})") << int(EmbeddingResponse::TypeMismatch);
        QTest::addRow("string vector")
            << QByteArray(R"({"data":[{"embedding":"AAAA"}]})") << int(EmbeddingResponse::TypeMismatch);
        QTest::addRow("data not array")
            << QByteArray(R"({"data":{}})") << int(EmbeddingResponse::TypeMismatch);
        QTest::addRow("top-level array") << QByteArray(R"([1])") << int(EmbeddingResponse::TypeMismatch);
    }
    void decoderShapes()
    {
        QFETCH(QByteArray, body);
        QFETCH(int, code);
        const auto decoded = EmbeddingResponse::decode(body);
        if (code == 0) {
            QCOMPARE(std::get<QList<QList<double>>>(decoded), QList<QList<double>>({{1.0, 2.5}}));
        } else {
            const ProviderError error = std::get<ProviderError>(decoded);
            QCOMPARE(error.domain, EmbeddingResponse::DecodingDomain);
            QCOMPARE(error.code, code);
        }
    }
};

QUILLMOOR_TEST_MAIN(TestEmbeddings)
#include "tst_embeddings.moc"
