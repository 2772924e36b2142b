#include "TestMain.h"

#include "Core/IcuRegex.h"
#include "Services/WorkbookPatterns.h"

#include <QRandomGenerator>

using namespace Qt::StringLiterals;

namespace {

using Matches = QList<std::tuple<qsizetype, qsizetype, int, qsizetype, qsizetype>>;

// What ICU finds for a pattern, group by group: the reference the searches must equal.
Matches byEngine(const QString &pattern, const QString &text)
{
    Matches found;
    IcuRegex regex(pattern, IcuRegex::DotMatchesLineSeparators);
    regex.setText(text);
    regex.setRange(0, text.size());
    while (regex.findNext()) {
        int group = 1;
        while (group <= 3 && regex.start(group) < 0)
            ++group;
        found.append({regex.start(0), regex.end(0), group, regex.start(group), regex.end(group)});
    }
    return found;
}

// What the searches find: the cells of one row's inner text, or the rows of a sheet.
Matches bySearch(bool cells, const QString &text)
{
    Matches found;
    WorkbookPatterns::CellScanner scanner(text);
    qsizetype from = 0;
    while (const auto m = cells ? scanner.next() : WorkbookPatterns::findRow(text, from)) {
        found.append({m->start, m->end, m->group, m->valueStart, m->valueEnd});
        from = m->end;
    }
    return found;
}

} // namespace

class TestWorkbookPatterns : public QObject {
    Q_OBJECT

private slots:
    // Known hard cases, then thousands of texts made of pieces that make the patterns backtrack: tags
    // without their ends, values that are no numbers, other scripts' digits (Arabic-Indic and a
    // mathematical digit outside the basic plane), line breaks.
    void asTheEngineFindsThem_data()
    {
        QTest::addColumn<bool>("cells");
        QTest::addColumn<QStringList>("known");
        QTest::addColumn<QString>("pieces");
        QTest::addRow("cells")
            << true
            << QStringList{u"<c r=\"A1\" t=\"s\"><v>0</v></c><c r=\"B1\" "
                           u"t=\"inlineStr\"><is><t>Name</t></is></c>"
                           u"<c r=\"C1\" t=\"str\"><f>A1</f><v>x</v></c><c r=\"D1\" s=\"2\"><v>1.5</v></c>"_s,
                           u"<c r=\"A1\"/><c r=\"B1\" s=\"1\"/><c><v>7</v></c>"_s, // empty cells borrow
                           u"<c t=\"s\"><v>x</v></c><c><v>8</v></c>"_s,            // into the next cell
                           u"<c t=\"s\"><v>\u0663</v></c>"_s,
                           u"<c t=\"s\"><v>1\U0001D7D9</v></c><c><v>\U0001D7D9</v></c>"_s,
                           u"<c r=\"A1\">t=\"s\"<v>1</v></c>"_s,    // type after the tag's end
                           u"<c><v>1</v></c><c t=\"s\"><v>2</v>"_s, // no closing tag
                           u"<c t=\"str\"><t>offen<v>3</v></c>"_s,  // falls back to a number
                           u"<c t=\"s\" <v>1</v></c"_s,             // a tag without ">"
                           u"<c\nt=\"s\"\n>\n<v>4</v>\n</c>\n<c t=\"inlineStr\"><is><t>a\r\nb</t></is></c>"_s}
            << u"<c|>| t=\"s\"| t=\"str\"| t=\"inlineStr\"| r=\"A1\"|/>|<v>|</v>|12|3.5|\u0663|\U0001D7D9|x|"
               u"</c>|<t>|<t xml:space=\"preserve\">|</t>|<is>|\n|<|t=\"s|<f>"_s;
        QTest::addRow("rows") << false
                              << QStringList{u"<sheetData><ro"_s, u"<row><v>1</v></row><row r=\"2\""_s,
                                             u"x<row r=\"2\"><c><v>1</v></c></ro"_s}
                              << u"<row| r=\"1\"|>|</row>|</row|<rowBreaks|<c><v>1</v></c>|\n|x"_s;
    }
    void asTheEngineFindsThem()
    {
        QFETCH(bool, cells);
        QFETCH(QStringList, known);
        QFETCH(QString, pieces);
        const QStringList piece = pieces.split(u'|');
        QRandomGenerator random(11);
        for (int i = 0; i < 4000; ++i) {
            QString text;
            for (int n = 1 + random.bounded(40); n > 0; --n)
                text += piece.at(random.bounded(int(piece.size())));
            known.append(text);
        }
        for (const QString &text : std::as_const(known)) {
            QVERIFY2(bySearch(cells, text) ==
                         byEngine(cells ? WorkbookPatterns::CellPattern : WorkbookPatterns::RowPattern, text),
                     qPrintable(text));
            // A row that the text ends inside of is reported, so that a caller reading in pieces keeps it.
            qsizetype from = 0, open = -2;
            while (const auto m = WorkbookPatterns::findRow(text, from, &open))
                from = m->end;
            QCOMPARE(open, text.indexOf(u"<row"_s, from));
        }
    }
};

QUILLMOOR_TEST_MAIN(TestWorkbookPatterns)
#include "tst_workbookpatterns.moc"
