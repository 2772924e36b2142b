#include "TestMain.h"

#include "Markdown/MarkdownDocumentWriter.h"
#include "Markdown/MarkdownRenderer.h"

#include <QTextBlock>
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
const QString Bullet = Markdown::BulletMarker + u"|marker"_s;

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
    void runs_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QStringList>("runs");
        const QString rule = Markdown::HorizontalRule + u"|size8"_s;
        QTest::addRow("heading 2, no inline rendering")
            << u"## **fett**"_s << QStringList{u"**fett**|size17bold"_s};
        QTest::addRow("heading 3") << u"### T"_s << QStringList{u"T|size15demibold"_s};
        QTest::addRow("heading, spaces trimmed")
            << u"  #\t  Titel \u00a0"_s << QStringList{u"Titel|size20bold"_s};
        QTest::addRow("heading, carriage return kept")
            << u"# Titel\r"_s << QStringList{u"Titel\r|size20bold"_s};
        QTest::addRow("four hashes") << u"#### T"_s << QStringList{u"#### T|plain"_s};
        QTest::addRow("hash without space") << u"#Titel"_s << QStringList{u"#Titel|plain"_s};
        QTest::addRow("three dashes") << u"---"_s << QStringList{rule};
        QTest::addRow("five dashes") << u"-----"_s << QStringList{rule};
        QTest::addRow("star rule with carriage return") << u"***\r"_s << QStringList{rule};
        QTest::addRow("mixed rule") << u"-*-"_s << QStringList{u"-*-|plain"_s};
        QTest::addRow("spaced dashes") << u"- - -"_s << QStringList{Bullet, u"- -|plain"_s};
        QTest::addRow("two stars") << u"**"_s << QStringList{u"**|plain"_s};
        QTest::addRow("indented bullet") << u"  - Punkt"_s << QStringList{Bullet, u"Punkt|plain"_s};
        QTest::addRow("star bullet") << u"* Stern"_s << QStringList{Bullet, u"Stern|plain"_s};
        QTest::addRow("bullet content not trimmed") << u"-  x"_s << QStringList{Bullet, u" x|plain"_s};
        QTest::addRow("bullet inline") << u"- **b**"_s << QStringList{Bullet, u"b|bold"_s};
        QTest::addRow("dash without space") << u"-Punkt"_s << QStringList{u"-Punkt|plain"_s};
        QTest::addRow("bare dash") << u"-"_s << QStringList{u"-|plain"_s};
        QTest::addRow("space with combining mark") << u"- \u0301x"_s << QStringList{u"- \u0301x|plain"_s};
        QTest::addRow("numbered as written")
            << u"12.   Zwölf  "_s << QStringList{u"  12.  |markerdemibold"_s, u"Zwölf|plain"_s};
        QTest::addRow("numbered inline")
            << u"1. *i*"_s << QStringList{u"  1.  |markerdemibold"_s, u"i|italic"_s};
        QTest::addRow("numbered empty rest") << u"7.\t"_s << QStringList{u"7.|plain"_s};
        QTest::addRow("numbered carriage return")
            << u"7.\r"_s << QStringList{u"  7.  |markerdemibold"_s, u"\r|plain"_s};
        QTest::addRow("no space after point") << u"1.Eins"_s << QStringList{u"1.Eins|plain"_s};
        QTest::addRow("arabic-indic digits")
            << u"\u0661\u0662. x"_s << QStringList{u"  \u0661\u0662.  |markerdemibold"_s, u"x|plain"_s};
        QTest::addRow("paragraph trimmed") << u"\t\u3000Text \u00a0"_s << QStringList{u"Text|plain"_s};
        QTest::addRow("carriage return kept") << u"Text\r"_s << QStringList{u"Text\r|plain"_s};
        QTest::addRow("fence goes through inline rules") << u"```"_s << QStringList{u" ` |code"_s};
        QTest::addRow("empty") << QString() << QStringList{};
        QTest::addRow("empty paragraph between")
            << u"a\n\nb"_s << QStringList{u"a|plain"_s, u"\n|none"_s, u"\n|none"_s, u"b|plain"_s};
        QTest::addRow("trailing line feed") << u"a\n"_s << QStringList{u"a|plain"_s, u"\n|none"_s};
        QTest::addRow("crlf") << u"a\r\nb"_s << QStringList{u"a\r|plain"_s, u"\n|none"_s, u"b|plain"_s};
        QTest::addRow("blank line") << u" \t "_s << QStringList{};
        QTest::addRow("inline mixed")
            << u"a **b** c `d` e"_s
            << QStringList{u"a |plain"_s, u"b|bold"_s, u" c |plain"_s, u" d |code"_s, u" e|plain"_s};
        QTest::addRow("bold italic") << u"***x***"_s << QStringList{u"x|bolditalic"_s};
        QTest::addRow("no nesting") << u"**a *b* c**"_s << QStringList{u"a *b* c|bold"_s};
        QTest::addRow("lazy") << u"*a* und *b*"_s
                              << QStringList{u"a|italic"_s, u" und |plain"_s, u"b|italic"_s};
        QTest::addRow("unclosed") << u"a **b"_s << QStringList{u"a **b|plain"_s};
        QTest::addRow("underscores stay") << u"_a_ __b__"_s << QStringList{u"_a_ __b__|plain"_s};
        QTest::addRow("empty code") << u"``"_s << QStringList{u"``|plain"_s};
        QTest::addRow("dot stops at carriage return") << u"**a\rb**"_s << QStringList{u"**a\rb**|plain"_s};
        QTest::addRow("dot stops at line separator") << u"*a\u2028b*"_s << QStringList{u"*a\u2028b*|plain"_s};
        QTest::addRow("surrogate pairs")
            << u"😀 **🇩🇪** x"_s << QStringList{u"😀 |plain"_s, u"🇩🇪|bold"_s, u" x|plain"_s};
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

    // Each block's top margin, left margin, first-line indent and line spacing, as the chat bubble shows
    // them.
    void blockFormats()
    {
        QTextDocument document;
        MarkdownDocumentWriter().render(&document, u"# Erst\nAbsatz\n- Punkt\n3. Text\n***\n\n# Titel"_s,
                                        style());
        QStringList blocks;
        for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
            const QTextBlockFormat f = block.blockFormat();
            blocks.append(u"%1 %2 %3 %4"_s.arg(f.topMargin())
                              .arg(f.leftMargin())
                              .arg(f.textIndent())
                              .arg(f.lineHeight()));
        }
        QCOMPARE(blocks, (QStringList{u"0 0 0 4"_s, u"4 0 0 4"_s, u"8 16 -16 4"_s, u"8 20 -20 4"_s,
                                      u"16 0 0 4"_s, u"8 0 0 0"_s, u"12 0 0 4"_s}));
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

    void heightFollowsText()
    {
        QTextDocument document;
        document.setDocumentMargin(0);
        document.setTextWidth(200);
        MarkdownDocumentWriter writer;
        writer.render(&document, u"Hallo"_s, style());
        const int one = MarkdownDocumentWriter::measuredHeight(&document);
        QVERIFY(one >= document.size().height() && one - 1 < document.size().height());
        writer.render(&document, u"Hallo\nWelt"_s, style());
        QVERIFY(MarkdownDocumentWriter::measuredHeight(&document) > one);
        writer.render(&document, QString(), style());
        QVERIFY(MarkdownDocumentWriter::measuredHeight(&document) < one + 1);
    }
};

QUILLMOOR_TEST_MAIN(TestMarkdownRenderer)
#include "tst_markdownrenderer.moc"
