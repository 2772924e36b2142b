#include "TestMain.h"

#include "ConsoleCapture.h"
#include "Services/PDFKitHelper.h"

#include <QFile>
#include <QPainter>
#include <QPdfWriter>
#include <QTemporaryDir>

namespace {

// A PDF with one page per entry; an empty entry is a page without any text, " " one with only a blank.
bool writePdf(const QString &path, const QStringList &pages)
{
    QPdfWriter writer(path);
    writer.setResolution(72);
    QPainter painter(&writer);
    if (!painter.isActive())
        return false;
    painter.setFont(QFont(QStringLiteral("DejaVu Sans"), 12));
    for (qsizetype i = 0; i < pages.size(); ++i) {
        if (i > 0)
            writer.newPage();
        if (pages.at(i).isEmpty())
            painter.drawRect(50, 50, 100, 100);
        else
            painter.drawText(QPointF(72, 100), pages.at(i));
    }
    return painter.end();
}

} // namespace

class TestPDFKitHelper : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void keepsPagesWithText()
    {
        const QString file = m_dir.filePath(QStringLiteral("Bericht.pdf"));
        QVERIFY(writePdf(
            file, {QStringLiteral("Erste Seite"), QStringLiteral(" "), QStringLiteral("Dritte Seite")}));
        ConsoleCapture console;
        const auto text = PDFKitHelper::extractText(file);
        QVERIFY(text.has_value());
        QCOMPARE(text->simplified(), QStringLiteral("Erste Seite Dritte Seite"));
        QVERIFY(text->endsWith(QStringLiteral("\n\n")));
        QVERIFY(!text->startsWith(QLatin1Char('\n')));
        QVERIFY(text->contains(QStringLiteral("Seite\n\n")));
        QVERIFY(console.text().endsWith(
            QStringLiteral("] 📄 PDFKit: Extracted %1 chars from 3 pages of Bericht.pdf\n")
                .arg(text->size())));
    }

    void pagesWithoutTextGiveNothing()
    {
        const QString file = m_dir.filePath(QStringLiteral("scan.pdf"));
        QVERIFY(writePdf(file, {QString(), QString()}));
        ConsoleCapture console;
        QVERIFY(!PDFKitHelper::extractText(file).has_value());
        QVERIFY(console.text().endsWith(
            QStringLiteral("] 📄 PDFKit: Extracted 0 chars from 2 pages of scan.pdf\n")));
    }

    void fixtures_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<int>("pages");
        QTest::addColumn<QString>("contains");
        QTest::addRow("several pages")
            << "multipage_pdflatex_4pages" << 4 << "Hello, here is some text without a meaning.";
        QTest::addRow("blank pages are left out")
            << "fop_german_6pages_blank_pages" << 6 << "Inhaltsverzeichnis";
        QTest::addRow("owner password only") << "encrypted_rc4_owner_only_2pages" << 2 << "Fighting Obesity";
        QTest::addRow("no startxref, NUL tail") << "broken_no_startxref_nul_tail" << 1 << "Hello World";
        QTest::addRow("xref offset wrong") << "broken_no_xref_table" << 1 << "test example";
        QTest::addRow("CID fonts, vertical Japanese")
            << "japanese_jo_dvipdfmx" << 1 << "わたくしといふ現象は";
        QTest::addRow("right-to-left presentation forms")
            << "arabic_cid_truetype" << 1 << QString(QChar(0xFEE7));
        QTest::addRow("two columns, hyphenation joined")
            << "two_columns_groff_ms" << 2
            << "Äpfel vertragen keine Nachbarschaft mit Kartoffeln, weil sie deren Geschmack annehmen.";
    }
    void fixtures()
    {
        QFETCH(QString, fixture);
        QFETCH(int, pages);
        QFETCH(QString, contains);
        ConsoleCapture console;
        const auto text =
            PDFKitHelper::extractText(TestEnvironment::fixture(QStringLiteral("pdf/%1.pdf").arg(fixture)));
        QVERIFY(text.has_value());
        QVERIFY2(text->contains(contains), qPrintable(text->left(400)));
        QVERIFY(text->endsWith(QStringLiteral("\n\n")));
        // Text in reading order, not laid out with blanks; the page break is ours, not the engine's.
        QVERIFY(!text->contains(QStringLiteral("   ")));
        QVERIFY(!text->contains(QLatin1Char('\f')));
        QVERIFY(console.text().contains(QStringLiteral(" pages of ").prepend(QString::number(pages))));
    }

    // Side-by-side columns come out one after the other: the lines of a paragraph stay together and no
    // line holds words of both columns.
    void columnsInReadingOrder()
    {
        const auto text = PDFKitHelper::extractText(
            TestEnvironment::fixture(QStringLiteral("pdf/two_columns_groff_ms.pdf")));
        QVERIFY(text.has_value());
        QVERIFY(text->contains(QStringLiteral("Im September werden die Tage kürzer, und\n"
                                              "am Morgen liegt Tau auf den Wiesen. Wer jetzt\n"
                                              "noch Salat säen möchte, wählt robuste Sorten, die\n")));
        QVERIFY(text->contains(QStringLiteral("Der Rasenmäher bekommt vor dem Winter\n"
                                              "einen neuen Luftfilter.")));
        for (const QString &line : text->split(QLatin1Char('\n'))) {
            const bool left =
                line.contains(QStringLiteral("kürzer")) || line.contains(QStringLiteral("Kompost"));
            const bool right =
                line.contains(QStringLiteral("Leinöl")) || line.contains(QStringLiteral("Luftfilter"));
            QVERIFY2(!(left && right), qPrintable(line));
        }
    }

    void unopenableGiveNothing_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("name");
        QTest::addRow("user password")
            << TestEnvironment::fixture(QStringLiteral("pdf/encrypted_rc4_user_password_openpassword.pdf"))
            << "encrypted_rc4_user_password_openpassword.pdf";
        QTest::addRow("missing") << m_dir.filePath(QStringLiteral("missing.pdf")) << "missing.pdf";
        QTest::addRow("folder") << m_dir.path() << QFileInfo(m_dir.path()).fileName();

        const QString text = m_dir.filePath(QStringLiteral("notes.pdf"));
        QFile out(text);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write("just some words, no PDF at all\n");
        QTest::addRow("not a PDF") << text << "notes.pdf";

        QFile whole(TestEnvironment::fixture(QStringLiteral("pdf/multipage_pdflatex_4pages.pdf")));
        QVERIFY(whole.open(QIODevice::ReadOnly));
        const QString truncated = m_dir.filePath(QStringLiteral("truncated.pdf"));
        QFile cut(truncated);
        QVERIFY(cut.open(QIODevice::WriteOnly));
        cut.write(whole.read(2000));
        QTest::addRow("truncated") << truncated << "truncated.pdf";
    }
    void unopenableGiveNothing()
    {
        QFETCH(QString, file);
        QFETCH(QString, name);
        ConsoleCapture console;
        QVERIFY(!PDFKitHelper::extractText(file).has_value());
        QCOMPARE(console.lines().size(), 1);
        QVERIFY2(console.text().endsWith(QStringLiteral("] ❌ PDFKit: Could not open PDF at ") + name +
                                         QLatin1Char('\n')),
                 qPrintable(console.text()));
    }
};

QUILLMOOR_TEST_MAIN(TestPDFKitHelper)
#include "tst_pdfkithelper.moc"
