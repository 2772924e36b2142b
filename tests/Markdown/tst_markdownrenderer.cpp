#include "CaseFiles.h"
#include "TestMain.h"

#include "Markdown/MarkdownDocumentWriter.h"
#include "Markdown/MarkdownRenderer.h"

#include <QTextDocument>

using namespace Qt::StringLiterals;

namespace {

const QColor Ink = QColor(20, 30, 40);
const QColor Accent = QColor(250, 120, 20);

MarkdownDocumentWriter::Style style()
{
    return {Markdown::systemFont(14, QFont::Normal), Ink, Accent,
            MarkdownDocumentWriter::bubbleParagraphStyle()};
}

// A short name for how a run looks, so expectations read like the text they describe.
QString kind(const TextRun &run)
{
    if (!run.font)
        return u"none"_s;
    const QFont &f = *run.font;
    QString k = run.background ? u"code"_s : run.foreground == Accent ? u"marker"_s : QString();
    if (f.pointSizeF() != 14 && !run.background) // headings and rules
        k += u"size%1"_s.arg(f.pointSizeF());
    k += f.weight() == QFont::Bold ? u"bold"_s : f.weight() == QFont::DemiBold ? u"demibold"_s : QString();
    if (f.italic())
        k += u"italic"_s;
    return k.isEmpty() ? u"plain"_s : k;
}

} // namespace

class TestMarkdownRenderer : public QObject {
    Q_OBJECT
private slots:
    // The cases are under tests/data/markdownrenderer, one file per kind of line: a source and its runs, each
    // run written as its text and how it looks.
    void runs_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QStringList>("runs");
        const auto cases = CaseFiles::cases(u"markdownrenderer"_s);
        QVERIFY(!cases.isEmpty());
        for (const auto &[row, values] : cases)
            QTest::newRow(row.constData())
                << values.at(0).toString() << values.at(1).toVariant().toStringList();
    }

    void runs()
    {
        QFETCH(QString, source);
        QFETCH(QStringList, runs);
        QStringList described;
        for (const TextRun &run : parseMarkdown(source, style().font, Ink, Accent, style().paragraphStyle))
            described.append(run.text + u'|' + kind(run));
        QCOMPARE(described, runs);
    }

    void incrementalEqualsFull_data()
    {
        QTest::addColumn<int>("pieceLength");
        for (int length : {1, 2, 3, 7, 40})
            QTest::addRow("pieces of %d", length) << length;
    }

    void incrementalEqualsFull()
    {
        QFETCH(int, pieceLength);
        const QString answer =
            u"# Überblick\nEin **fetter** Satz mit `code` und *kursiv*.\n\n- erster Punkt\n- zweiter "
            "***Punkt***\n---\n12. zwölf\n## Zwei\r\nEnde 🇩🇪 und \u2028 ### nicht\n\n* "_s;
        QTextDocument streamed;
        MarkdownDocumentWriter writer;
        for (qsizetype at = 0; at < answer.size(); at += pieceLength) {
            writer.render(&streamed, answer.left(at + pieceLength), style());
            QTextDocument full;
            MarkdownDocumentWriter().renderFully(&full, answer.left(at + pieceLength), style());
            QCOMPARE(streamed.toHtml(), full.toHtml()); // every block and character format
        }
        // A text that does not continue the previous one starts over.
        writer.render(&streamed, u"neu"_s, style());
        QCOMPARE(streamed.toPlainText(), u"neu"_s);
        QCOMPARE(streamed.blockCount(), 1);
    }
};

QUILLMOOR_TEST_MAIN(TestMarkdownRenderer)
#include "tst_markdownrenderer.moc"
