#include "TestMain.h"

#include "CaseFiles.h"
#include "ConsoleCapture.h"
#include "Core/IcuRegex.h"
#include "Services/WorkbookPatterns.h"
#include "Services/XLSXHelper.h"
#include "WorkbookWriter.h"

#include <QRandomGenerator>

#include <sys/resource.h>

using WorkbookWriter::workbook;
using namespace Qt::StringLiterals;

namespace {

QString zipped(const QString &name, const WorkbookWriter::Entries &entries)
{
    const QString file = TestEnvironment::home().filePath(name);
    return WorkbookWriter::writeZip(file, entries) ? file : QString();
}

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

class TestXLSXHelper : public QObject {
    Q_OBJECT

private slots:
    // Known hard cases, then thousands of texts of pieces that make the patterns backtrack (patterns.json).
    void rowsAndCellsAsTheEngineFindsThem_data()
    {
        QTest::addColumn<bool>("cells");
        QTest::addColumn<QStringList>("known");
        QTest::addColumn<QStringList>("pieces");
        const QJsonObject patterns =
            QJsonDocument::fromJson(
                CaseFiles::read(TestEnvironment::data(u"xlsxhelper"_s) + u"/patterns.json"_s))
                .object();
        for (const QString &kind : {u"cells"_s, u"rows"_s}) {
            const QJsonObject cases = patterns[kind].toObject();
            QStringList known;
            for (const QJsonValue &text : cases[u"known"_s].toObject())
                known.append(text.toString());
            QVERIFY(!known.isEmpty());
            QTest::newRow(qPrintable(kind))
                << (kind == u"cells"_s) << known << cases[u"pieces"_s].toVariant().toStringList();
        }
    }
    void rowsAndCellsAsTheEngineFindsThem()
    {
        QFETCH(bool, cells);
        QFETCH(QStringList, known);
        QFETCH(QStringList, pieces);
        QRandomGenerator random(11);
        for (int i = 0; i < 4000; ++i) {
            QString text;
            for (int n = 1 + random.bounded(40); n > 0; --n)
                text += pieces.at(random.bounded(int(pieces.size())));
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

    // The fixture workbooks and the made ones (files and unpacked folders in tests/data/xlsxhelper), each
    // with its console lines and text there. Hostile archives are refused before they are inflated.
    void extractsFiles_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("expected");
        CaseFiles::addFileRows(TestEnvironment::fixture(u"xlsx"_s), u"xlsxhelper"_s, u"*.xlsx"_s);
        CaseFiles::addFileRows(TestEnvironment::data(u"xlsxhelper"_s), u"xlsxhelper"_s, u"*.xlsx"_s);
        const QDir generated(TestEnvironment::data(u"xlsxhelper/generated"_s));
        for (const QString &name : generated.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            QTest::newRow(name.toUtf8().constData())
                << zipped(name + u".xlsx"_s, WorkbookWriter::unpacked(generated.filePath(name)))
                << QString::fromUtf8(CaseFiles::read(generated.filePath(name + u".expected"_s)));
        const QString error = u"❌ Error extracting XLSX: %1\n"_s;
        QTest::addRow("missing")
            << TestEnvironment::home().filePath(u"fehlt.xlsx"_s)
            << error.arg(u"The file “fehlt.xlsx” couldn’t be opened because there is no such file."_s);
        QTest::addRow("folder") << TestEnvironment::home().path()
                                << u"📊 XLSX: Found 0 sheets, 0 shared strings\n"_s;
        // A sheet that inflates about 140 times.
        QByteArray rows;
        for (int i = 0; i < 800000; ++i)
            rows += "<row><c><v>" + QByteArray::number(i % 97) + "</v></c></row>";
        QTest::addRow("dense sheet")
            << zipped(u"dicht.xlsx"_s, workbook({rows}))
            << error.arg(u"The part xl/worksheets/sheet1.xml is compressed more than 100 to 1"_s);
        WorkbookWriter::Entries many;
        for (int i = 0; i <= 10000; ++i)
            many.append({u"xl/media/image%1.png"_s.arg(i), QByteArray("x")});
        QTest::addRow("too many entries")
            << zipped(u"viele.xlsx"_s, many) << error.arg(u"The archive holds more than 10000 entries"_s);
    }
    void extractsFiles()
    {
        QFETCH(QString, file);
        QFETCH(QString, expected);
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const long before = usage.ru_maxrss; // KiB
        ConsoleCapture console;
        const auto text = XLSXHelper::extractText(file);
        getrusage(RUSAGE_SELF, &usage);
        QVERIFY(usage.ru_maxrss - before < 64 * 1024);
        QVERIFY(!text || !text->isEmpty());
        QCOMPARE(CaseFiles::outcome(console, text), expected);
    }

    // Parts read in pieces give what one search over each whole part finds: elements cut between pieces, a
    // row far past a backtracking engine's step budget and the rows after it; a sheet that turns out not to
    // be UTF-8 long after its first rows is skipped whole, header line included.
    void partsInPiecesAsInOnePiece()
    {
        const QStringList pieces =
            u"<si><t>|</t></si>|<t xml:space=\"preserve\">|Wort |\n|\u2028|<r><rPr/>|</r>|"
            u"&amp;|Straße 🇨🇭 |<t|>"_s.split(u'|');
        QRandomGenerator random(5);
        QString part = u"<sst>"_s;
        while (part.size() < 3'000'000)
            part += pieces.at(random.bounded(int(pieces.size())));
        part += u"</sst>"_s;
        QStringList strings;
        IcuRegex reference(u"<t[^>]*>(.*?)</t>"_s);
        reference.setText(part);
        reference.setRange(0, part.size());
        while (reference.findNext())
            strings.append(reference.captured(1).toString());
        QVERIFY(strings.size() > 10000);

        QByteArray rows = "<row r=\"1\"><c t=\"inlineStr\"><is><t>Kopf</t></is></c></row><row r=\"2\">";
        QString expected = u"[TABELLE: Sheet 2]\nKopf\n"_s;
        for (quint32 seed = 7; rows.size() < 12'000'000;) {
            seed = seed * 1103515245u + 12345u;
            rows += "<c><v>" + QByteArray::number(seed % 100000) + "</v></c>";
            expected += QString::number(seed % 100000) + u'\t';
        }
        rows += "</row>";
        expected.chop(1);
        for (qsizetype i = 0; i < strings.size(); ++i)
            rows += "<row><c t=\"s\"><v>" + QByteArray::number(i) + "</v></c></row>";
        expected += u'\n' + strings.join(u'\n') + u"\n\n"_s;
        QByteArray invalid;
        for (int r = 0; r < 40000; ++r)
            invalid += "<row><c><v>" + QByteArray::number(r) + "</v></c></row>";
        WorkbookWriter::Entries entries =
            workbook({invalid + "<row><c t=\"str\"><t>caf\xe9</t></c></row>", rows});
        entries.append({u"xl/sharedStrings.xml"_s, part.toUtf8()});
        ConsoleCapture console;
        QCOMPARE(XLSXHelper::extractText(zipped(u"pieces.xlsx"_s, entries)).value_or(QString()), expected);
        QCOMPARE(console.lines().size(), 2);
        QVERIFY(console.lines().at(1).endsWith(u"   └─ Sheet [Sheet 2] Headers: Kopf"_s));
    }
};

QUILLMOOR_TEST_MAIN(TestXLSXHelper)
#include "tst_xlsxhelper.moc"
