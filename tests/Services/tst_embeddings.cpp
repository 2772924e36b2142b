#include "CaseFiles.h"
#include "ProviderClient.h"
#include "TestMain.h"

#include <QJsonArray>

#include <qcoro/qcorotask.h>

namespace {

EmbeddingsResult embed(const InfomaniakAPI &client, const QStringList &texts = {QStringLiteral("x")})
{
    return QCoro::waitFor(client.createEmbeddings(texts, QStringLiteral("m"), QStringLiteral("index")));
}

} // namespace

class TestEmbeddings : public QObject {
    Q_OBJECT
private slots:
    // The request as the provider reads it (its key is the chat's, set up in one place). No texts are sent
    // all the same, and an empty answer is a success.
    void request()
    {
        TestProvider provider;
        QVERIFY(provider.listen());
        const auto client = clientFor(provider);
        QVERIFY(embed(*client, {QStringLiteral("Rechnung Mai"), QStringLiteral("Äpfel/Birnen")}).ok());
        provider.enqueueEmbeddings(TestProvider::Response::body(200, R"({"data":[]})"));
        QVERIFY(embed(*client, {}).ok());
        const TestProvider::Request request = provider.requests().first();
        QCOMPARE(request.path, provider.baseUrl().path().toUtf8() + "/embeddings");
        QCOMPARE(request.headers.value("content-type"), QByteArray("application/json"));
        QCOMPARE(CaseFiles::lines(request.json()), CaseFiles::expected(QStringLiteral("embeddings/request")));
        QCOMPARE(provider.requests().last().json().value("input").toArray(), QJsonArray());
    }

    // Each body in tests/data/embeddings, named after its status, with the console's last line and the result
    // (vectors' shape and first number, or the error). Any status but 200 is the provider's error with the
    // body; no server (0) and silence (-1) are the transport's, the time-out one of its own.
    void answers_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("expected");
        const QDir cases(TestEnvironment::data(QStringLiteral("embeddings")));
        for (const QFileInfo &body : cases.entryInfoList({QStringLiteral("*.body")})) {
            const QString name = body.completeBaseName();
            QTest::addRow("%s", qPrintable(name))
                << name.section(QLatin1Char('-'), 0, 0).toInt() << CaseFiles::read(body.filePath())
                << QString::fromUtf8(CaseFiles::read(cases.filePath(name + QStringLiteral(".expected"))))
                       .trimmed();
        }
        const QString asked = QStringLiteral("🔢 Embedding 1 texts with model=m mode=index\n");
        QTest::addRow("no server") << 0 << QByteArray()
                                   << asked + "Error Domain=QNetworkReply Code=1 \"Connection refused\"";
        QTest::addRow("silence") << -1 << QByteArray()
                                 << asked + "Error Domain=QNetworkReply Code=4 \"The request timed out.\"";
    }
    void answers()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, expected);
        auto provider = std::make_unique<TestProvider>();
        QVERIFY(provider->listen());
        TestProvider::Response response = TestProvider::Response::body(status, body);
        response.neverAnswer = status < 0;
        provider->enqueueEmbeddings(response);
        const auto client = clientFor(*provider, status < 0 ? 300 : 60000);
        if (status == 0)
            provider.reset();
        ConsoleCapture console;
        const EmbeddingsResult result = embed(*client);
        const QString outcome = result.ok() ? QStringLiteral("%1x%2: %3")
                                                  .arg(result.vectors.size())
                                                  .arg(result.vectors[0].size())
                                                  .arg(result.vectors[0][0], 0, 'g', 15)
                                            : result.error->fullText();
        QCOMPARE(console.lines().last() + QLatin1Char('\n') + outcome, expected);
    }
};

QUILLMOOR_TEST_MAIN(TestEmbeddings)
#include "tst_embeddings.moc"
