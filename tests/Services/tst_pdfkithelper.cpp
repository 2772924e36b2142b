#include "TestMain.h"

#include "ConsoleCapture.h"
#include "Services/PDFKitHelper.h"

#include <QPainter>
#include <QPdfWriter>

using namespace Qt::StringLiterals;

namespace {

// A PDF in the test's home with one page per entry, each with a drawing and the entry's text (" " and ""
// give pages without text). Its path, or "" when it could not be written.
QString writePdf(const QString &name, const QStringList &pages)
{
    const QString path = TestEnvironment::home().filePath(name);
    QPdfWriter writer(path);
    writer.setResolution(72);
    QPainter painter(&writer);
    painter.setFont(QFont(u"DejaVu Sans"_s, 12));
    for (qsizetype i = 0; i < pages.size(); ++i) {
        if (i > 0)
            writer.newPage();
        painter.drawRect(50, 50, 100, 100);
        painter.drawText(QPointF(72, 100), pages.at(i));
    }
    return painter.end() ? path : QString();
}

} // namespace

class TestPDFKitHelper : public QObject {
    Q_OBJECT

private slots:
    // Every fixture in the folder, generated documents and what does not open: the pages the log line
    // names (0: the file does not open) and what the text must hold (nothing: there is no text).
    void extractText_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("pages");
        QTest::addColumn<QStringList>("contains");
        const QHash<QString, QPair<int, QStringList>> expected{
            {"multipage_pdflatex_4pages", {4, {"Hello, here is some text without a meaning."}}},
            {"fop_german_6pages_blank_pages", {6, {"Inhaltsverzeichnis"}}}, // blank pages are left out
            {"encrypted_rc4_owner_only_2pages", {2, {"Fighting Obesity"}}},
            {"encrypted_rc4_user_password_openpassword", {0, {}}},
            {"broken_no_startxref_nul_tail", {1, {"Hello World"}}},
            {"broken_no_xref_table", {1, {"test example"}}},
            {"japanese_jo_dvipdfmx", {1, {"わたくしといふ現象は"}}}, // CID fonts, vertical
            {"arabic_cid_truetype", {1, {QString(QChar(0xFEE7))}}},  // right-to-left presentation forms
            // Side-by-side columns one after the other, the lines of a paragraph together; hyphenation
            // joined.
            {"two_columns_groff_ms",
             {2,
              {"Im September werden die Tage kürzer, und\nam Morgen liegt Tau auf den Wiesen. Wer jetzt\n"
               "noch Salat säen möchte, wählt robuste Sorten, die\n",
               "Der Rasenmäher bekommt vor dem Winter\neinen neuen Luftfilter.",
               "Äpfel vertragen keine Nachbarschaft mit Kartoffeln, weil sie deren Geschmack annehmen."}}}};
        for (const QString &name : QDir(TestEnvironment::fixture(u"pdf"_s)).entryList({u"*.pdf"_s})) {
            const QString stem = name.chopped(4);
            QVERIFY2(expected.contains(stem), qPrintable(name + u" has no expectation"_s));
            QTest::addRow("%s", qPrintable(stem)) << TestEnvironment::fixture(u"pdf/"_s + name)
                                                  << expected[stem].first << expected[stem].second;
        }
        // Pages without text are left out; a document of such pages only has no text.
        QTest::addRow("blank page between")
            << writePdf(u"Bericht.pdf"_s, {"Erste Seite", " ", "Dritte Seite"}) << 3
            << QStringList{"Erste Seite\n\nDritte Seite\n\n"};
        QTest::addRow("no text at all")
            << writePdf(u"Leer.pdf"_s, {QString(), QString()}) << 2 << QStringList();
        QTest::addRow("missing") << TestEnvironment::home().filePath(u"missing.pdf"_s) << 0 << QStringList();
        QTest::addRow("folder") << TestEnvironment::home().path() << 0 << QStringList();
        QTest::addRow("not a PDF") << TestEnvironment::writeFile(u"notes.pdf"_s, "just some words, no PDF\n")
                                   << 0 << QStringList();
        QFile whole(TestEnvironment::fixture(u"pdf/multipage_pdflatex_4pages.pdf"_s));
        QVERIFY(whole.open(QIODevice::ReadOnly));
        QTest::addRow("truncated") << TestEnvironment::writeFile(u"truncated.pdf"_s, whole.read(2000)) << 0
                                   << QStringList();
    }
    void extractText()
    {
        QFETCH(QString, file);
        QFETCH(int, pages);
        QFETCH(QStringList, contains);
        const QString name = QFileInfo(file).fileName();
        ConsoleCapture console;
        const auto text = PDFKitHelper::extractText(file);
        QCOMPARE(console.lines().size(), 1);
        if (pages == 0)
            QVERIFY2(console.text().endsWith(u"] ❌ PDFKit: Could not open PDF at "_s + name + u'\n'),
                     qPrintable(console.text()));
        else
            QVERIFY2(console.text().endsWith(u" chars from %1 pages of %2\n"_s.arg(pages).arg(name)),
                     qPrintable(console.text()));
        QCOMPARE(text.has_value(), !contains.isEmpty());
        for (const QString &part : contains)
            QVERIFY2(text->contains(part), qPrintable(text->left(400)));
        // Text in reading order, not laid out with blanks; the page break is ours, not the engine's.
        QVERIFY(text.value_or(u"\n\n"_s).endsWith(u"\n\n"_s));
        QVERIFY(!text.value_or(QString()).contains(u"   "_s));
        QVERIFY(!text.value_or(QString()).contains(u'\f'));
    }
};

QUILLMOOR_TEST_MAIN(TestPDFKitHelper)
#include "tst_pdfkithelper.moc"
