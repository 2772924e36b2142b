#include "TestMain.h"

#include "CaseFiles.h"
#include "ConsoleCapture.h"
#include "Core/Graphemes.h"
#include "Services/PDFKitHelper.h"
#include "Services/TextExtraction.h"
#include "WorkbookWriter.h"

#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace {

const QString Note = u"\n\n[... Text wurde gekürzt, da das Dokument zu lang für den Kontext ist ...]"_s;

} // namespace

class TestTextExtraction : public QObject {
    Q_OBJECT

private slots:
    // Text files as knowledge: the whole text when the file is strict UTF-8, as Qt's decoder reads it. As
    // attachment: cut at 30,000 characters as the user counts them, nothing when there is no text.
    void textFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("attachment");
        QTest::addRow("markdown") << u"notes.md"_s << QByteArray("# Titel\r\n\r\nÜberall 🇨🇭\n")
                                  << u"# Titel\r\n\r\nÜberall 🇨🇭\n"_s;
        QTest::addRow("no extension") << u"readme"_s << QByteArray("plain") << u"plain"_s;
        QTest::addRow("empty") << u"leer.txt"_s << QByteArray() << QString();
        QTest::addRow("truncated sequence") << u"cut.txt"_s << QByteArray("ok \xe2\x82") << QString();

        const QByteArray limit(30000, 'a');
        const QByteArray flag = "🇨🇭"; // one character, four UTF-16 units
        QTest::addRow("exactly the limit") << u"lang.txt"_s << limit << QString::fromLatin1(limit);
        QTest::addRow("one more") << u"lang.txt"_s << limit + 'a' << QString::fromLatin1(limit) + Note;
        QTest::addRow("flags count once")
            << u"lang.txt"_s << flag.repeated(30000) << QString::fromUtf8(flag.repeated(30000));
        QTest::addRow("flags cut whole")
            << u"lang.txt"_s << flag.repeated(30001) << QString::fromUtf8(flag.repeated(30000)) + Note;
        QTest::addRow("CR LF is one character")
            << u"lang.txt"_s << QByteArray("\r\n").repeated(30001) << u"\r\n"_s.repeated(30000) + Note;
        // Read up to the cut and no further: bytes that are not UTF-8 far behind it do not cost the text.
        QTest::addRow("no further than the cut")
            << u"riesig.log"_s << limit + QByteArray(8 << 20, 'b') + "\xff\xfe"
            << QString::fromLatin1(limit) + Note;
        // Read piece by piece: characters cut between pieces are joined, and a U+FEFF is a byte order mark
        // only at the very start of the file, also where a piece begins.
        const QByteArray mixed = "€🇨🇭ä"; // 13 bytes: pieces begin inside characters
        QTest::addRow("characters across pieces")
            << u"stücke.txt"_s << "x" + mixed.repeated((3 << 20) / mixed.size())
            << QString::fromUtf8("x" + mixed.repeated(9999) + "€🇨🇭") + Note;
        const QByteArray marked =
            "\xef\xbb\xbf" + ("\xef\xbb\xbf" + mixed.repeated(314) + QByteArray(11, 'y')).repeated(768);
        QTest::addRow("byte order marks where pieces begin")
            << u"stücke.txt"_s << marked << Graphemes::prefix(QString::fromUtf8(marked), 30000) + Note;
    }
    void textFiles()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, attachment);
        const QString path = TestEnvironment::writeFile(name, bytes);
        QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
        const QString text = utf8.decode(bytes);
        QCOMPARE(TextExtraction::forKnowledge(path),
                 utf8.hasError() ? std::optional<QString>() : std::optional<QString>(text));
        QCOMPARE(TextExtraction::forAttachment(path).value_or(QString()), attachment);
    }

    // What cannot be read is nothing: a folder given as a file, a missing file, a device without end.
    void unreadable()
    {
        ConsoleCapture console;
        QVERIFY(!TextExtraction::forKnowledge(TestEnvironment::home().path()).has_value());
        QVERIFY(!TextExtraction::forKnowledge(TestEnvironment::home().filePath(u"fehlt.txt"_s)).has_value());
        QVERIFY(!TextExtraction::forAttachment(u"/dev/zero"_s).has_value());
        QVERIFY(console.lines().contains(u"Extracting text from: fehlt.txt (accessing: false)"_s));
    }

    // Contents are never sniffed: a PDF named .txt is read as text.
    void extensionChoosesTheExtractor()
    {
        const QByteArray pdf = CaseFiles::read(TestEnvironment::fixture(u"pdf/broken_no_xref_table.pdf"_s));
        QCOMPARE(TextExtraction::forKnowledge(TestEnvironment::writeFile(u"report.txt"_s, pdf)),
                 QString::fromUtf8(pdf));
        // A workbook's text is cut as a whole: at 30,001 characters, not at 30,000.
        const QString book = TestEnvironment::home().filePath(u"Preise.XLSX"_s);
        for (const int ones : {29979, 29980}) {
            QVERIFY(WorkbookWriter::writeZip(
                book, WorkbookWriter::workbook(
                          {"<row><c t=\"str\"><t>" + QByteArray(ones, '1') + "</t></c></row>"})));
            const QString text = u"[TABELLE: Sheet 1]\n"_s + QString(ones, u'1') + u"\n\n"_s;
            QCOMPARE(TextExtraction::forAttachment(book),
                     text.size() > 30000 ? text.left(30000) + Note : text);
        }
    }

    // The fixture PDFs and the made ones in tests/data/textextraction, each with its console line and text in
    // reading order there. The CID-font files read only with Poppler's data package installed.
    void pdfFiles_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("expected");
        CaseFiles::addFileRows(TestEnvironment::fixture(u"pdf"_s), u"textextraction"_s, u"*.pdf"_s);
        CaseFiles::addFileRows(TestEnvironment::data(u"textextraction"_s), u"textextraction"_s, u"*.pdf"_s);
        const QString failed = u"❌ PDFKit: Could not open PDF at %1\n"_s;
        QTest::addRow("missing") << TestEnvironment::home().filePath(u"missing.pdf"_s)
                                 << failed.arg(u"missing.pdf"_s);
        QTest::addRow("folder") << TestEnvironment::home().path()
                                << failed.arg(TestEnvironment::home().path().section(u'/', -1));
    }
    void pdfFiles()
    {
        QFETCH(QString, file);
        QFETCH(QString, expected);
        ConsoleCapture console;
        const auto text = PDFKitHelper::extractText(file);
        QVERIFY(!text || !text->isEmpty());
        QCOMPARE(CaseFiles::outcome(console, text), expected);
    }
};

QUILLMOOR_TEST_MAIN(TestTextExtraction)
#include "tst_textextraction.moc"
