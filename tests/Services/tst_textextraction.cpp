#include "TestMain.h"

#include "ConsoleCapture.h"
#include "Core/Graphemes.h"
#include "Services/TextExtraction.h"

#include <QFile>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {
const QString Note =
    QStringLiteral("\n\n[... Text wurde gekürzt, da das Dokument zu lang für den Kontext ist ...]");
}

class TestTextExtraction : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void textPathReadsStrictUtf8_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("readable");
        QTest::addRow("csv") << "data.csv" << QByteArray("Name,Ort\nMeier,Bern\n") << true;
        QTest::addRow("markdown") << "notes.md" << QByteArray("# Titel\r\n\r\nÜberall 🇨🇭\n") << true;
        QTest::addRow("no extension") << "readme" << QByteArray("plain") << true;
        QTest::addRow("upper-case txt") << "TABLE.TXT" << QByteArray("a\tb\n") << true;
        QTest::addRow("Latin-1 umlauts") << "alt.txt" << QByteArray("M\xfcller und S\xf6hne") << false;
        QTest::addRow("old spreadsheet")
            << "alt.xls" << QByteArray("\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1") << false;
        QTest::addRow("truncated sequence") << "cut.txt" << QByteArray("ok \xe2\x82") << false;
    }
    void textPathReadsStrictUtf8()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, bytes);
        QFETCH(bool, readable);
        const QString path = TestEnvironment::writeFile(name, bytes);
        ConsoleCapture console;
        const auto knowledge = TextExtraction::forKnowledge(path);
        const auto attachment = TextExtraction::forAttachment(path);
        QCOMPARE(knowledge.has_value(), readable);
        QCOMPARE(attachment.has_value(), readable);
        if (readable) {
            QCOMPARE(*knowledge, QString::fromUtf8(bytes));
            QCOMPARE(*attachment, QString::fromUtf8(bytes));
        }
        QCOMPARE(console.lines(),
                 QStringList{QStringLiteral("Extracting text from: %1 (accessing: true)").arg(name)});
    }

    // An empty file is empty knowledge but no attachment; what cannot be read is nothing.
    void emptyOrUnreadable()
    {
        const QString empty = TestEnvironment::writeFile(QStringLiteral("leer.txt"), QByteArray());
        QCOMPARE(TextExtraction::forKnowledge(empty), std::optional<QString>(QString()));
        QVERIFY(!TextExtraction::forAttachment(empty).has_value());
        ConsoleCapture console;
        QVERIFY(!TextExtraction::forKnowledge(m_dir.path()).has_value()); // a folder given as a file
        QVERIFY(!TextExtraction::forKnowledge(m_dir.filePath(QStringLiteral("fehlt.txt"))).has_value());
        QVERIFY(!TextExtraction::forAttachment(QStringLiteral("/dev/zero")).has_value());
        QVERIFY(
            console.lines().contains(QStringLiteral("Extracting text from: fehlt.txt (accessing: false)")));
    }

    void extensionChoosesTheExtractor()
    {
        // Contents are never sniffed: a PDF named .txt is text, and invalid as UTF-8.
        QFile pdf(TestEnvironment::fixture(QStringLiteral("pdf/broken_no_xref_table.pdf")));
        QVERIFY(pdf.open(QIODevice::ReadOnly));
        const QByteArray bytes = pdf.readAll();
        QCOMPARE(TextExtraction::forKnowledge(TestEnvironment::writeFile(QStringLiteral("Report.PDF"), bytes))
                     .value_or(QString()),
                 QStringLiteral("test example\n\n"));
        QCOMPARE(
            TextExtraction::forKnowledge(TestEnvironment::writeFile(QStringLiteral("report.txt"), bytes)),
            QString::fromUtf8(bytes));
        QFile xlsx(TestEnvironment::fixture(QStringLiteral("xlsx/google_sheets_comments.xlsx")));
        QVERIFY(xlsx.open(QIODevice::ReadOnly));
        QCOMPARE(TextExtraction::forAttachment(
                     TestEnvironment::writeFile(QStringLiteral("Preise.XLSX"), xlsx.readAll()))
                     .value_or(QString()),
                 QStringLiteral("[TABELLE: Sheet1]\nThis is a cell.\n\n"));
    }

    void attachmentIsCutAtThirtyThousandCharacters_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const QString flag = QStringLiteral("🇨🇭"); // one character, four UTF-16 units
        QTest::addRow("exactly the limit")
            << QString(30000, QLatin1Char('a')) << QString(30000, QLatin1Char('a'));
        QTest::addRow("one more") << QString(30001, QLatin1Char('a'))
                                  << QString(30000, QLatin1Char('a')) + Note;
        QTest::addRow("flags count once") << flag.repeated(30000) << flag.repeated(30000);
        QTest::addRow("flags cut whole") << flag.repeated(30001) << flag.repeated(30000) + Note;
        QTest::addRow("CR LF is one character")
            << QStringLiteral("\r\n").repeated(30001) << QStringLiteral("\r\n").repeated(30000) + Note;
    }
    void attachmentIsCutAtThirtyThousandCharacters()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        const QString path = TestEnvironment::writeFile(QStringLiteral("lang.txt"), text.toUtf8());
        QCOMPARE(TextExtraction::forAttachment(path).value_or(QString()), expected);
        QCOMPARE(TextExtraction::forKnowledge(path).value_or(QString()), text);
    }

    // An attachment is read up to its cut and no further: what lies beyond is neither read nor checked, so
    // bytes that are not UTF-8 far behind the cut do not cost the text. The knowledge base reads the whole
    // file, and such a file has no text there.
    void attachmentStopsReadingAtTheCut()
    {
        QByteArray bytes(40000, 'a');
        bytes += QByteArray(8 << 20, 'b');
        bytes += "\xff\xfe";
        const QString path = TestEnvironment::writeFile(QStringLiteral("riesig.log"), bytes);
        QCOMPARE(TextExtraction::forAttachment(path).value_or(QString()),
                 QString(30000, QLatin1Char('a')) + Note);
        QVERIFY(!TextExtraction::forKnowledge(path).has_value());
    }

    // Files are decoded piece by piece: characters cut between pieces are joined, and a U+FEFF is a byte
    // order mark only at the very start of the file, also where a piece begins.
    void textIsTheSameWhateverThePieces_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QByteArray mixed = QStringLiteral("€🇨🇭ä").toUtf8(); // 13 bytes: pieces begin inside characters
        QTest::addRow("characters across pieces") << "x" + mixed.repeated((3 << 20) / mixed.size());
        QByteArray marked = "\xef\xbb\xbf";
        const QByteArray segment = "\xef\xbb\xbf" + mixed.repeated(314) + QByteArray(11, 'y'); // 4096 bytes
        QTest::addRow("byte order marks where pieces begin") << marked + segment.repeated(768);
    }
    void textIsTheSameWhateverThePieces()
    {
        QFETCH(QByteArray, bytes);
        const QString path = TestEnvironment::writeFile(QStringLiteral("stücke.txt"), bytes);
        const QString expected = QString::fromUtf8(bytes); // without the mark at the start
        QCOMPARE(expected.count(QChar(0xFEFF)),
                 bytes.count("\xef\xbb\xbf") - int(bytes.startsWith("\xef\xbb\xbf")));
        QCOMPARE(TextExtraction::forKnowledge(path).value_or(QString()), expected);
        QCOMPARE(TextExtraction::forAttachment(path).value_or(QString()),
                 Graphemes::prefix(expected, 30000) + Note);
    }

    void fileNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QString>("stem");
        QTest::addRow("two dots") << u"Bericht 2024.final.pdf"_s << u"pdf"_s << u"Bericht 2024.final"_s;
        QTest::addRow("upper case") << u"Report.PDF"_s << u"pdf"_s << u"Report"_s;
        QTest::addRow("none") << u"readme"_s << QString() << u"readme"_s;
        QTest::addRow("hidden") << u".profile"_s << QString() << u".profile"_s;
        QTest::addRow("trailing dot") << u"notes."_s << QString() << u"notes."_s;
    }
    void fileNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, extension);
        QFETCH(QString, stem);
        QCOMPARE(TextExtraction::lowerExtension(name), extension);
        QCOMPARE(TextExtraction::nameWithoutExtension(name), stem);
    }
};

QUILLMOOR_TEST_MAIN(TestTextExtraction)
#include "tst_textextraction.moc"
