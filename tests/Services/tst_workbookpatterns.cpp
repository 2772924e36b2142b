#include "TestMain.h"

#include "Core/IcuRegex.h"
#include "Services/WorkbookPatterns.h"

#include <QRandomGenerator>

using WorkbookPatterns::Match;

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

Matches cells(const QString &row)
{
    Matches found;
    WorkbookPatterns::CellScanner scanner(row);
    while (const auto m = scanner.next())
        found.append({m->start, m->end, m->group, m->valueStart, m->valueEnd});
    return found;
}

Matches rows(const QString &text)
{
    Matches found;
    qsizetype from = 0;
    while (const auto m = WorkbookPatterns::findRow(text, from)) {
        found.append({m->start, m->end, m->group, m->valueStart, m->valueEnd});
        from = m->end;
    }
    return found;
}

// Pieces that make the patterns backtrack: tags without their ends, values that are no numbers, other
// scripts' digits (Arabic-Indic and a mathematical digit outside the basic plane), line breaks.
QString soup(QRandomGenerator &random, const QStringList &pieces, int length)
{
    QString text;
    for (int i = 0; i < length; ++i)
        text += pieces.at(random.bounded(int(pieces.size())));
    return text;
}

const QStringList CellPieces{QStringLiteral("<c"),
                             QStringLiteral(">"),
                             QStringLiteral(" t=\"s\""),
                             QStringLiteral(" t=\"str\""),
                             QStringLiteral(" t=\"inlineStr\""),
                             QStringLiteral(" r=\"A1\""),
                             QStringLiteral("/>"),
                             QStringLiteral("<v>"),
                             QStringLiteral("</v>"),
                             QStringLiteral("12"),
                             QStringLiteral("3.5"),
                             QStringLiteral("\u0663"),
                             QStringLiteral("\U0001D7D9"),
                             QStringLiteral("x"),
                             QStringLiteral("</c>"),
                             QStringLiteral("<t>"),
                             QStringLiteral("<t xml:space=\"preserve\">"),
                             QStringLiteral("</t>"),
                             QStringLiteral("<is>"),
                             QStringLiteral("\n"),
                             QStringLiteral("<"),
                             QStringLiteral("t=\"s"),
                             QStringLiteral("<f>")};

const QStringList RowPieces{QStringLiteral("<row"),
                            QStringLiteral(" r=\"1\""),
                            QStringLiteral(">"),
                            QStringLiteral("</row>"),
                            QStringLiteral("</row"),
                            QStringLiteral("<rowBreaks"),
                            QStringLiteral("<c><v>1</v></c>"),
                            QStringLiteral("\n"),
                            QStringLiteral("x")};

} // namespace

class TestWorkbookPatterns : public QObject {
    Q_OBJECT

private slots:
    void cellsAsTheEngineFindsThem_data()
    {
        QTest::addColumn<QString>("row");
        QTest::addRow("the three kinds") << QStringLiteral(
            "<c r=\"A1\" t=\"s\"><v>0</v></c><c r=\"B1\" t=\"inlineStr\"><is><t>Name</t></is></c>"
            "<c r=\"C1\" t=\"str\"><f>A1</f><v>x</v></c><c r=\"D1\" s=\"2\"><v>1.5</v></c>");
        QTest::addRow("empty cells borrow the next value")
            << QStringLiteral("<c r=\"A1\"/><c r=\"B1\" s=\"1\"/><c r=\"C1\"><v>7</v></c>");
        QTest::addRow("a shared-string cell without a number reaches into the next cell")
            << QStringLiteral("<c t=\"s\"><v>x</v></c><c><v>8</v></c>");
        QTest::addRow("other scripts' digits are digits") << QStringLiteral("<c t=\"s\"><v>\u0663</v></c>");
        QTest::addRow("digits outside the basic plane")
            << QStringLiteral("<c t=\"s\"><v>1\U0001D7D9</v></c><c><v>\U0001D7D9</v></c>");
        QTest::addRow("type attribute after the tag's end")
            << QStringLiteral("<c r=\"A1\">t=\"s\"<v>1</v></c>");
        QTest::addRow("no closing tag for the last cell")
            << QStringLiteral("<c><v>1</v></c><c t=\"s\"><v>2</v>");
        QTest::addRow("inline text without its end falls back to a number")
            << QStringLiteral("<c t=\"str\"><t>offen<v>3</v></c>");
        QTest::addRow("a tag without \">\"") << QStringLiteral("<c t=\"s\" <v>1</v></c");
        QTest::addRow("line breaks everywhere") << QStringLiteral(
            "<c\nt=\"s\"\n>\n<v>4</v>\n</c>\n<c t=\"inlineStr\"><is><t>a\r\nb</t></is></c>");
    }
    void cellsAsTheEngineFindsThem()
    {
        QFETCH(QString, row);
        QCOMPARE(cells(row), byEngine(WorkbookPatterns::CellPattern, row));
    }

    void randomCellsAsTheEngineFindsThem()
    {
        QRandomGenerator random(11);
        for (int i = 0; i < 4000; ++i) {
            const QString row = soup(random, CellPieces, 1 + random.bounded(40));
            const Matches expected = byEngine(WorkbookPatterns::CellPattern, row);
            QVERIFY2(cells(row) == expected, qPrintable(row));
        }
    }

    void randomRowsAsTheEngineFindsThem()
    {
        QRandomGenerator random(12);
        for (int i = 0; i < 4000; ++i) {
            const QString text = soup(random, RowPieces, 1 + random.bounded(30));
            QVERIFY2(rows(text) == byEngine(WorkbookPatterns::RowPattern, text), qPrintable(text));
        }
    }

    // A row that the text ends inside of is reported, so that a caller reading in pieces keeps it.
    void openRows_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<qsizetype>("open");
        QTest::addRow("none begun") << QStringLiteral("<sheetData><ro") << qsizetype(-1);
        QTest::addRow("tag not closed") << QStringLiteral("<row><v>1</v></row><row r=\"2\"") << qsizetype(19);
        QTest::addRow("end missing") << QStringLiteral("x<row r=\"2\"><c><v>1</v></c></ro") << qsizetype(1);
    }
    void openRows()
    {
        QFETCH(QString, text);
        QFETCH(qsizetype, open);
        qsizetype from = 0, begun = -2;
        while (const auto m = WorkbookPatterns::findRow(text, from, &begun))
            from = m->end;
        QCOMPARE(begun, open);
    }
};

QUILLMOOR_TEST_MAIN(TestWorkbookPatterns)
#include "tst_workbookpatterns.moc"
