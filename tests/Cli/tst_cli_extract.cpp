#include "TestMain.h"

#include "Services/DebugLog.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace {

struct Run {
    int exitCode = -1;
    QByteArray out;
    QString err;
};

Run run(const QStringList &args)
{
    QProcess process;
    process.start(QStringLiteral(QUILLMOOR_CLI_PATH), args);
    Run result;
    if (!process.waitForFinished(120000))
        return result;
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

} // namespace

class TestCliExtract : public QObject {
    Q_OBJECT

private slots:
    void extractPrintsOnlyTheText_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("out");
        const QByteArray longText(30001, 'x');
        QTest::addRow("text unchanged")
            << QStringList{} << QByteArray("Grüezi\n\nmitenand") << 0 << QByteArray("Grüezi\n\nmitenand");
        QTest::addRow("Latin-1 gives nothing")
            << QStringList{} << QByteArray("Gr\xfc\x65zi") << 1 << QByteArray();
        QTest::addRow("empty file") << QStringList{} << QByteArray() << 1 << QByteArray();
        QTest::addRow("knowledge keeps it whole") << QStringList{} << longText << 0 << longText;
        QTest::addRow("attachment is cut")
            << QStringList{QStringLiteral("--attachment")} << longText << 0
            << QByteArray(30000, 'x') +
                   "\n\n[... Text wurde gekürzt, da das Dokument zu lang für den Kontext ist ...]";
    }
    void extractPrintsOnlyTheText()
    {
        QFETCH(QStringList, options);
        QFETCH(QByteArray, bytes);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, out);
        const QString file = TestEnvironment::writeFile(QStringLiteral("notiz.txt"), bytes);
        const Run result = run(QStringList{QStringLiteral("extract")} + options + QStringList{file});
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(result.out, out);
        QCOMPARE(result.err.contains(QStringLiteral("Extracting text from: notiz.txt (accessing: true)\n")),
                 options.isEmpty());
    }

    void debugLinesGoToStandardError()
    {
        QFile::remove(DebugLog::filePath());
        const Run result = run(
            {QStringLiteral("extract"),
             TestEnvironment::fixture(QStringLiteral("pdf/encrypted_rc4_user_password_openpassword.pdf"))});
        QCOMPARE(result.exitCode, 1);
        QVERIFY(result.out.isEmpty());
        QVERIFY(result.err.contains(QStringLiteral(
            "] ❌ PDFKit: Could not open PDF at encrypted_rc4_user_password_openpassword.pdf\n")));
        // The entry lands in the log, but the header belongs to the knowledge base's start.
        QFile log(DebugLog::filePath());
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray text = log.readAll();
        QVERIFY(text.startsWith('['));
        QVERIFY(!text.contains("==="));
    }

    void chunksPrintsOneJsonObject_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QStringList>("chunks");
        QTest::addColumn<QString>("description");
        QTest::addRow("workbook rows") << TestEnvironment::fixture(QStringLiteral(
                                              "xlsx/excel2007_formula_str_entities_sheetname_amp.xlsx"))
                                       << QStringList{QStringLiteral("[5&amp;4] 1: \"&amp;&lt;&gt;")}
                                       << QStringLiteral("Tabelle [5&amp;4] mit Spalten: 1");
        QTest::addRow("running text")
            << TestEnvironment::writeFile(QStringLiteral("Bericht 2024.final.md"),
                                          "Eins zwei.\n\nDrei/vier.\n")
            << QStringList{QStringLiteral("[Bericht 2024.final] Eins zwei.\nDrei/vier.")}
            << QStringLiteral("1 Abschnitte. Beginn: Eins zwei. Drei/vier....");
        QTest::addRow("nothing extracted")
            << TestEnvironment::writeFile(QStringLiteral("alt.txt"), "\xff\xfe") << QStringList{}
            << QString();
    }
    void chunksPrintsOneJsonObject()
    {
        QFETCH(QString, file);
        QFETCH(QStringList, chunks);
        QFETCH(QString, description);
        const Run result = run({QStringLiteral("chunks"), file});
        QCOMPARE(result.exitCode, 0);
        QJsonParseError error{};
        const QJsonDocument json = QJsonDocument::fromJson(result.out, &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        QCOMPARE(json.object().keys(),
                 (QStringList{QStringLiteral("chunks"), QStringLiteral("description")}));
        QCOMPARE(json[QStringLiteral("chunks")].toArray().toVariantList(), QVariant(chunks).toList());
        QCOMPARE(json[QStringLiteral("description")].toString(), description);
    }

    void usageErrors_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addRow("extract without file") << QStringList{QStringLiteral("extract")};
        QTest::addRow("extract with two files")
            << QStringList{QStringLiteral("extract"), QStringLiteral("a"), QStringLiteral("b")};
        QTest::addRow("unknown option")
            << QStringList{QStringLiteral("extract"), QStringLiteral("--pages"), QStringLiteral("a")};
        QTest::addRow("chunks without file") << QStringList{QStringLiteral("chunks")};
    }
    void usageErrors()
    {
        QFETCH(QStringList, args);
        const Run result = run(args);
        QCOMPARE(result.exitCode, 64);
        QVERIFY(result.out.isEmpty());
        QVERIFY(result.err.contains(QStringLiteral("usage:")));
    }
};

QUILLMOOR_TEST_MAIN(TestCliExtract)
#include "tst_cli_extract.moc"
