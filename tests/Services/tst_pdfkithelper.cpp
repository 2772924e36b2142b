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
    // Pages without text are left out; a document of such pages only has no text.
    void generatedPages_data()
    {
        QTest::addColumn<QStringList>("pages");
        QTest::addColumn<QString>("text");
        QTest::addRow("blank page between") << QStringList{"Erste Seite", " ", "Dritte Seite"}
                                            << QStringLiteral("Erste Seite\n\nDritte Seite\n\n");
        QTest::addRow("no text at all") << QStringList{QString(), QString()} << QString();
    }
    void generatedPages()
    {
        QFETCH(QStringList, pages);
        QFETCH(QString, text);
        const QString file = m_dir.filePath(QStringLiteral("Bericht.pdf"));
        QVERIFY(writePdf(file, pages));
        ConsoleCapture console;
        QCOMPARE(PDFKitHelper::extractText(file).value_or(QString()), text);
        QVERIFY(console.text().endsWith(
            QStringLiteral("] 📄 PDFKit: Extracted %1 chars from %2 pages of Bericht.pdf\n")
                .arg(text.size())
                .arg(pages.size())));
    }

    // Every fixture in the folder: what it must hold and how many pages it has (0: it does not open).
    void fixtures_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<int>("pages");
        QTest::addColumn<QString>("contains");
        const QHash<QString, QPair<int, QString>> expected{
            {"multipage_pdflatex_4pages", {4, "Hello, here is some text without a meaning."}},
            {"fop_german_6pages_blank_pages", {6, "Inhaltsverzeichnis"}}, // blank pages are left out
            {"encrypted_rc4_owner_only_2pages", {2, "Fighting Obesity"}},
            {"encrypted_rc4_user_password_openpassword", {0, {}}},
            {"broken_no_startxref_nul_tail", {1, "Hello World"}},
            {"broken_no_xref_table", {1, "test example"}},
            {"japanese_jo_dvipdfmx", {1, "わたくしといふ現象は"}}, // CID fonts, vertical
            {"arabic_cid_truetype", {1, QString(QChar(0xFEE7))}},  // right-to-left presentation forms
            {"two_columns_groff_ms",                               // hyphenation joined
             {2, "Äpfel vertragen keine Nachbarschaft mit Kartoffeln, weil sie deren Geschmack annehmen."}}};
        const QDir folder(TestEnvironment::fixture(QStringLiteral("pdf")));
        for (const QString &name : folder.entryList({QStringLiteral("*.pdf")})) {
            const QString stem = name.chopped(4);
            QVERIFY2(expected.contains(stem), qPrintable(name + QStringLiteral(" has no expectation")));
            QTest::addRow("%s", qPrintable(stem)) << stem << expected[stem].first << expected[stem].second;
        }
    }
    void fixtures()
    {
        QFETCH(QString, fixture);
        QFETCH(int, pages);
        QFETCH(QString, contains);
        ConsoleCapture console;
        const auto text =
            PDFKitHelper::extractText(TestEnvironment::fixture(QStringLiteral("pdf/%1.pdf").arg(fixture)));
        if (pages == 0) {
            QVERIFY(!text.has_value());
            QVERIFY(console.text().endsWith(
                QStringLiteral("] ❌ PDFKit: Could not open PDF at %1.pdf\n").arg(fixture)));
            return;
        }
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
        QTest::addRow("missing") << m_dir.filePath(QStringLiteral("missing.pdf")) << "missing.pdf";
        QTest::addRow("folder") << m_dir.path() << QFileInfo(m_dir.path()).fileName();

        QTest::addRow("not a PDF") << TestEnvironment::writeFile("notes.pdf",
                                                                 "just some words, no PDF at all\n")
                                   << "notes.pdf";
        QFile whole(TestEnvironment::fixture(QStringLiteral("pdf/multipage_pdflatex_4pages.pdf")));
        QVERIFY(whole.open(QIODevice::ReadOnly));
        QTest::addRow("truncated") << TestEnvironment::writeFile("truncated.pdf", whole.read(2000))
                                   << "truncated.pdf";
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
