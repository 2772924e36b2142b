#include "TestMain.h"

#include "Markdown/MarkdownDocumentWriter.h"
#include "Markdown/MarkdownRenderer.h"

#include <QTextBlock>
#include <QTextDocument>

using namespace Qt::StringLiterals;

namespace {

const QColor Ink = QColor(20, 30, 40);
const QColor Accent = QColor(250, 120, 20);
const ParagraphStyle Base = MarkdownDocumentWriter::bubbleParagraphStyle();

QFont baseFont()
{
    return Markdown::systemFont(14, QFont::Normal);
}

AttributedText render(const QString &text)
{
    return parseMarkdown(text, baseFont(), Ink, Accent, Base);
}

// A short name for how a run looks, so expectations read like the text they describe.
QString kind(const TextRun &run)
{
    if (!run.font && !run.foreground && !run.paragraphStyle)
        return u"none"_s;
    if (run.background)
        return u"code"_s;
    if (run.foreground == Accent)
        return u"marker"_s;
    const QFont &f = *run.font;
    if (f.pointSizeF() != 14) // headings and rules
        return u"size%1%2"_s.arg(f.pointSizeF())
            .arg(f.weight() == QFont::Bold       ? u"bold"_s
                 : f.weight() == QFont::DemiBold ? u"demibold"_s
                                                 : QString());
    if (f.italic())
        return f.weight() == QFont::Bold ? u"bolditalic"_s : u"italic"_s;
    return f.weight() == QFont::Bold ? u"bold"_s : u"plain"_s;
}

QStringList describe(const AttributedText &runs)
{
    QStringList out;
    for (const TextRun &run : runs)
        out.append(run.text + u'|' + kind(run));
    return out;
}

// Everything a reader of the document can see: each block's format, and each fragment's text and format.
QStringList dump(QTextDocument &document)
{
    QStringList out;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        const QTextBlockFormat bf = block.blockFormat();
        out.append(u"block %1 %2 %3 %4"_s.arg(bf.topMargin())
                       .arg(bf.leftMargin())
                       .arg(bf.textIndent())
                       .arg(bf.lineHeight()));
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            const QTextCharFormat cf = fragment.charFormat();
            out.append(fragment.text() + u'|' + cf.font().toString() + u'|' +
                       cf.foreground().color().name(QColor::HexArgb) + u'|' +
                       cf.background().color().name(QColor::HexArgb));
        }
    }
    return out;
}

} // namespace

class TestMarkdownRenderer : public QObject {
    Q_OBJECT
private slots:
    void blockKinds_data();
    void blockKinds();
    void paragraphStyles();
    void inlineRuns_data();
    void inlineRuns();
    void inlineAttributes();
    void documentFormats();
    void incrementalEqualsFull_data();
    void incrementalEqualsFull();
    void heightFollowsText();
};

void TestMarkdownRenderer::blockKinds_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QStringList>("runs");
    const QString rule = Markdown::HorizontalRule + u"|size8"_s;
    QTest::addRow("heading 1") << u"# Titel"_s << QStringList{u"Titel|size20bold"_s};
    QTest::addRow("heading 2, no inline rendering")
        << u"## **fett**"_s << QStringList{u"**fett**|size17bold"_s};
    QTest::addRow("heading 3") << u"### T"_s << QStringList{u"T|size15demibold"_s};
    QTest::addRow("heading, spaces trimmed")
        << u"  #\t  Titel \u00a0"_s << QStringList{u"Titel|size20bold"_s};
    QTest::addRow("heading, carriage return kept") << u"# Titel\r"_s << QStringList{u"Titel\r|size20bold"_s};
    QTest::addRow("four hashes") << u"#### T"_s << QStringList{u"#### T|plain"_s};
    QTest::addRow("hash without space") << u"#Titel"_s << QStringList{u"#Titel|plain"_s};
    QTest::addRow("three dashes") << u"---"_s << QStringList{rule};
    QTest::addRow("five dashes") << u"-----"_s << QStringList{rule};
    QTest::addRow("three stars") << u"***"_s << QStringList{rule};
    QTest::addRow("rule with carriage return") << u"---\r"_s << QStringList{rule};
    QTest::addRow("mixed rule") << u"-*-"_s << QStringList{u"-*-|plain"_s};
    QTest::addRow("spaced dashes") << u"- - -"_s
                                   << QStringList{Markdown::BulletMarker + u"|marker"_s, u"- -|plain"_s};
    QTest::addRow("two stars") << u"**"_s << QStringList{u"**|plain"_s};
    QTest::addRow("indented bullet") << u"  - Punkt"_s
                                     << QStringList{Markdown::BulletMarker + u"|marker"_s, u"Punkt|plain"_s};
    QTest::addRow("star bullet") << u"* Stern"_s
                                 << QStringList{Markdown::BulletMarker + u"|marker"_s, u"Stern|plain"_s};
    QTest::addRow("bullet content not trimmed")
        << u"-  x"_s << QStringList{Markdown::BulletMarker + u"|marker"_s, u" x|plain"_s};
    QTest::addRow("bullet inline") << u"- **b**"_s
                                   << QStringList{Markdown::BulletMarker + u"|marker"_s, u"b|bold"_s};
    QTest::addRow("dash without space") << u"-Punkt"_s << QStringList{u"-Punkt|plain"_s};
    QTest::addRow("bare dash") << u"-"_s << QStringList{u"-|plain"_s};
    QTest::addRow("space with combining mark") << u"- \u0301x"_s << QStringList{u"- \u0301x|plain"_s};
    QTest::addRow("numbered") << u"12. Zwölf"_s << QStringList{u"  12.  |marker"_s, u"Zwölf|plain"_s};
    QTest::addRow("numbered as written")
        << u"3.   Text  "_s << QStringList{u"  3.  |marker"_s, u"Text|plain"_s};
    QTest::addRow("numbered inline") << u"1. *i*"_s << QStringList{u"  1.  |marker"_s, u"i|italic"_s};
    QTest::addRow("numbered empty rest") << u"7.\t"_s << QStringList{u"7.|plain"_s};
    QTest::addRow("numbered carriage return") << u"7.\r"_s << QStringList{u"  7.  |marker"_s, u"\r|plain"_s};
    QTest::addRow("no space after point") << u"1.Eins"_s << QStringList{u"1.Eins|plain"_s};
    QTest::addRow("arabic-indic digits")
        << u"\u0661\u0662. x"_s << QStringList{u"  \u0661\u0662.  |marker"_s, u"x|plain"_s};
    QTest::addRow("paragraph trimmed") << u"\t\u3000Text \u00a0"_s << QStringList{u"Text|plain"_s};
    QTest::addRow("carriage return kept") << u"Text\r"_s << QStringList{u"Text\r|plain"_s};
    QTest::addRow("fence goes through inline rules") << u"```"_s << QStringList{u" ` |code"_s};
    QTest::addRow("empty") << QString() << QStringList{};
    QTest::addRow("empty paragraph between")
        << u"a\n\nb"_s << QStringList{u"a|plain"_s, u"\n|none"_s, u"\n|none"_s, u"b|plain"_s};
    QTest::addRow("trailing line feed") << u"a\n"_s << QStringList{u"a|plain"_s, u"\n|none"_s};
    QTest::addRow("crlf") << u"a\r\nb"_s << QStringList{u"a\r|plain"_s, u"\n|none"_s, u"b|plain"_s};
    QTest::addRow("blank line") << u" \t "_s << QStringList{};
}

void TestMarkdownRenderer::blockKinds()
{
    QFETCH(QString, source);
    QFETCH(QStringList, runs);
    QCOMPARE(describe(render(source)), runs);
}

void TestMarkdownRenderer::paragraphStyles()
{
    const TextRun heading = render(u"x\n# Titel"_s).last();
    QCOMPARE(heading.foreground, Ink);
    QCOMPARE(heading.paragraphStyle->paragraphSpacingBefore, 12.0);
    QCOMPARE(heading.paragraphStyle->paragraphSpacing, 4.0);
    QCOMPARE(heading.paragraphStyle->lineSpacing, Base.lineSpacing);
    QCOMPARE(render(u"# Titel"_s).last().paragraphStyle->paragraphSpacingBefore, 0.0);

    const AttributedText bullet = render(u"- Punkt"_s);
    QCOMPARE(bullet.at(0).font, baseFont());
    QCOMPARE(bullet.at(0).foreground, Accent);
    for (const TextRun &run : bullet) {
        QCOMPARE(run.paragraphStyle->headIndent, 16.0);
        QCOMPARE(run.paragraphStyle->firstLineHeadIndent, 0.0);
        QCOMPARE(run.paragraphStyle->paragraphSpacing, Base.paragraphSpacing);
    }
    const AttributedText numbered = render(u"3. Text"_s);
    QCOMPARE(numbered.at(0).font->weight(), QFont::DemiBold);
    QCOMPARE(numbered.at(0).font->pointSizeF(), 14.0);
    QCOMPARE(numbered.at(1).font, baseFont());
    for (const TextRun &run : numbered)
        QCOMPARE(run.paragraphStyle->headIndent, 20.0);

    const AttributedText rule = render(u"***"_s);
    QCOMPARE(rule.at(0).text.size(), 21);
    QVERIFY(qAbs(rule.at(0).foreground->alphaF() - 0.3f) < 1e-3f);
    QCOMPARE(rule.at(0).paragraphStyle->paragraphSpacingBefore, 8.0);
    QCOMPARE(rule.at(0).paragraphStyle->paragraphSpacing, 8.0);
}

void TestMarkdownRenderer::inlineRuns_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("runs");
    QTest::addRow("mixed") << u"a **b** c `d` e"_s
                           << QStringList{u"a |plain"_s, u"b|bold"_s, u" c |plain"_s, u" d |code"_s,
                                          u" e|plain"_s};
    QTest::addRow("bold italic") << u"***x***"_s << QStringList{u"x|bolditalic"_s};
    QTest::addRow("italic") << u"*a*"_s << QStringList{u"a|italic"_s};
    QTest::addRow("no nesting") << u"**a *b* c**"_s << QStringList{u"a *b* c|bold"_s};
    QTest::addRow("lazy") << u"*a* und *b*"_s << QStringList{u"a|italic"_s, u" und |plain"_s, u"b|italic"_s};
    QTest::addRow("unclosed") << u"a **b"_s << QStringList{u"a **b|plain"_s};
    QTest::addRow("underscores stay") << u"_a_ __b__"_s << QStringList{u"_a_ __b__|plain"_s};
    QTest::addRow("empty code") << u"``"_s << QStringList{u"``|plain"_s};
    QTest::addRow("dot stops at carriage return") << u"**a\rb**"_s << QStringList{u"**a\rb**|plain"_s};
    QTest::addRow("dot stops at line separator") << u"*a\u2028b*"_s << QStringList{u"*a\u2028b*|plain"_s};
    QTest::addRow("surrogate pairs") << u"😀 **🇩🇪** x"_s
                                     << QStringList{u"😀 |plain"_s, u"🇩🇪|bold"_s, u" x|plain"_s};
    QTest::addRow("empty") << QString() << QStringList{};
}

void TestMarkdownRenderer::inlineRuns()
{
    QFETCH(QString, line);
    QFETCH(QStringList, runs);
    QCOMPARE(describe(applyInlineMarkdown(line, baseFont(), Ink, Base)), runs);
}

void TestMarkdownRenderer::inlineAttributes()
{
    const AttributedText runs = applyInlineMarkdown(u"`c`"_s, baseFont(), Ink, Base);
    QCOMPARE(runs.size(), 1);
    QCOMPARE(runs[0].font->pointSizeF(), 13.0);
    QVERIFY(runs[0].font->fixedPitch());
    QVERIFY(qAbs(runs[0].foreground->alphaF() - 0.85f) < 1e-3f);
    QVERIFY(qAbs(runs[0].background->alphaF() - 0.08f) < 1e-3f);
    QCOMPARE(runs[0].background->rgb(), Ink.rgb());
    QCOMPARE(runs[0].paragraphStyle, Base);

    QFont serif(u"Serif"_s, 11);
    const AttributedText italic = applyInlineMarkdown(u"*i* p"_s, serif, Ink, Base);
    QCOMPARE(italic[0].font->family(), serif.family());
    QVERIFY(italic[0].font->italic());
    QCOMPARE(italic[1].font, serif);
}

void TestMarkdownRenderer::documentFormats()
{
    QTextDocument document;
    MarkdownDocumentWriter writer;
    writer.render(&document, u"Absatz\n- Punkt\n\n# Titel"_s, {baseFont(), Ink, Accent, Base});
    QCOMPARE(document.blockCount(), 4);
    QCOMPARE(document.toPlainText(), u"Absatz\n"_s + Markdown::BulletMarker + u"Punkt\n\nTitel"_s);
    const QTextBlockFormat bullet = document.findBlockByNumber(1).blockFormat();
    QCOMPARE(bullet.leftMargin(), 16.0);
    QCOMPARE(bullet.textIndent(), -16.0);
    QCOMPARE(bullet.topMargin(), 8.0); // the paragraph before ends with 8 points
    QCOMPARE(bullet.lineHeight(), 4.0);
    QCOMPARE(bullet.lineHeightType(), int(QTextBlockFormat::LineDistanceHeight));
    QCOMPARE(document.findBlockByNumber(2).blockFormat().topMargin(), 8.0);
    QCOMPARE(document.findBlockByNumber(3).blockFormat().topMargin(), 12.0); // after an empty line
}

void TestMarkdownRenderer::incrementalEqualsFull_data()
{
    QTest::addColumn<int>("pieceLength");
    for (int length : {1, 2, 3, 7, 40})
        QTest::addRow("pieces of %d", length) << length;
}

void TestMarkdownRenderer::incrementalEqualsFull()
{
    QFETCH(int, pieceLength);
    const QString answer =
        u"# Überblick\nEin **fetter** Satz mit `code` und *kursiv*.\n\n- erster Punkt\n- zweiter "
        "***Punkt***\n---\n12. zwölf\n## Zwei\r\nEnde 🇩🇪 und \u2028 ### nicht\n\n* "_s;
    const MarkdownDocumentWriter::Style style{baseFont(), Ink, Accent, Base};
    QTextDocument streamed;
    MarkdownDocumentWriter writer;
    QString text;
    for (qsizetype at = 0; at < answer.size(); at += pieceLength) {
        text += answer.mid(at, pieceLength);
        writer.render(&streamed, text, style);
        QTextDocument full;
        MarkdownDocumentWriter().renderFully(&full, text, style);
        QCOMPARE(dump(streamed), dump(full));
    }
    // A text that does not continue the previous one starts over.
    writer.render(&streamed, u"neu"_s, style);
    QCOMPARE(streamed.toPlainText(), u"neu"_s);
    QCOMPARE(streamed.blockCount(), 1);
}

void TestMarkdownRenderer::heightFollowsText()
{
    QTextDocument document;
    document.setDocumentMargin(0);
    document.setTextWidth(200);
    MarkdownDocumentWriter writer;
    const MarkdownDocumentWriter::Style style{baseFont(), Ink, Accent, Base};
    writer.render(&document, u"Hallo"_s, style);
    const int one = MarkdownDocumentWriter::measuredHeight(&document);
    QVERIFY(one > 0);
    QVERIFY(one >= document.size().height() && one - 1 < document.size().height());
    writer.render(&document, u"Hallo\nWelt"_s, style);
    QVERIFY(MarkdownDocumentWriter::measuredHeight(&document) > one);
    writer.render(&document, QString(), style);
    QVERIFY(MarkdownDocumentWriter::measuredHeight(&document) < one + 1);
}

QUILLMOOR_TEST_MAIN(TestMarkdownRenderer)
#include "tst_markdownrenderer.moc"
