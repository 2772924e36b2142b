#include "TestMain.h"

#include "ConsoleCapture.h"
#include "Core/IcuRegex.h"
#include "Services/XLSXHelper.h"
#include "WorkbookWriter.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtEndian>

#include <array>

#include <sys/resource.h>

using WorkbookWriter::sheetXml;

namespace {

double peakRssMiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

void put16(QByteArray &out, quint16 v)
{
    const quint16 le = qToLittleEndian(v);
    out.append(reinterpret_cast<const char *>(&le), 2);
}
void put32(QByteArray &out, quint32 v)
{
    const quint32 le = qToLittleEndian(v);
    out.append(reinterpret_cast<const char *>(&le), 4);
}
// The fields of a local file header (30 bytes).
using LocalHeader = std::array<char, 30>;
quint16 get16(const LocalHeader &in, qsizetype at)
{
    return qFromLittleEndian<quint16>(in.data() + at);
}
quint32 get32(const LocalHeader &in, qsizetype at)
{
    return qFromLittleEndian<quint32>(in.data() + at);
}

// One deflated entry, and a central directory listing it `copies` times under different worksheet
// names: every entry inflates the same bytes again (the overlapping-entries bomb).
QByteArray overlappingBomb(const QString &scratch, qsizetype entryBytes, int copies)
{
    if (!WorkbookWriter::writeZip(
            scratch, {{QStringLiteral("xl/worksheets/sheet1.xml"), QByteArray(entryBytes, ' ')}}))
        return {};
    QFile file(scratch);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    LocalHeader header{};
    if (file.read(header.data(), qint64(header.size())) != qint64(header.size()) || !file.seek(0))
        return {};
    const QByteArray single = file.readAll();
    const quint16 method = get16(header, 8);
    const quint32 crc = get32(header, 14), packed = get32(header, 18), unpacked = get32(header, 22);
    const qsizetype dataEnd = 30 + get16(header, 26) + get16(header, 28) + packed;

    QByteArray out = single.left(dataEnd);
    QByteArray directory;
    for (int i = 1; i <= copies; ++i) {
        const QByteArray name = "xl/worksheets/sheet" + QByteArray::number(i) + ".xml";
        put32(directory, 0x02014b50);
        put16(directory, 20);
        put16(directory, 20);
        put16(directory, 0);
        put16(directory, method);
        put32(directory, 0); // time and date
        put32(directory, crc);
        put32(directory, packed);
        put32(directory, unpacked);
        put16(directory, quint16(name.size()));
        put32(directory, 0); // extra and comment lengths
        put32(directory, 0); // disk, internal attributes
        put32(directory, 0); // external attributes
        put32(directory, 0); // every entry starts at the same local header
        directory += name;
    }
    const quint32 directoryAt = quint32(out.size());
    out += directory;
    put32(out, 0x06054b50);
    put32(out, 0);
    put16(out, quint16(copies));
    put16(out, quint16(copies));
    put32(out, quint32(directory.size()));
    put32(out, directoryAt);
    put16(out, 0);
    return out;
}

} // namespace

class TestXLSXHelper : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    QString path(const QString &name) const { return m_dir.filePath(name); }

private slots:
    void extractsGeneratedWorkbooks_data()
    {
        QTest::addColumn<WorkbookWriter::Entries>("entries");
        QTest::addColumn<QString>("expected");

        const QString ws = QStringLiteral("xl/worksheets/");
        const QByteArray header = "<row r=\"1\"><c r=\"A1\" t=\"inlineStr\"><is><t>Name</t></is></c></row>";
        QTest::addRow("two sheets in workbook order")
            << WorkbookWriter::Entries{{QStringLiteral("xl/workbook.xml"),
                                        WorkbookWriter::workbookXml(
                                            {QStringLiteral("Kunden"), QStringLiteral("Preise")})},
                                       {QStringLiteral("xl/sharedStrings.xml"),
                                        WorkbookWriter::sharedStringsXml(
                                            {QStringLiteral("Müller &amp; Co"), QStringLiteral("Bern")})},
                                       {ws + QStringLiteral("sheet2.xml"), sheetXml(header)},
                                       {ws + QStringLiteral("sheet1.xml"),
                                        sheetXml("<row r=\"1\"><c r=\"A1\" t=\"s\"><v>0</v></c><c r=\"B1\" "
                                                 "t=\"s\"><v>1</v></c></row>")}}
            << QStringLiteral("[TABELLE: Kunden]\nMüller &amp; Co\tBern\n\n[TABELLE: Preise]\nName\n\n");

        WorkbookWriter::Entries ten;
        QString tenExpected;
        for (int i = 1; i <= 10; ++i) {
            ten.append({ws + QStringLiteral("sheet%1.xml").arg(i),
                        sheetXml("<row><c><v>" + QByteArray::number(i) + "</v></c></row>")});
            tenExpected += QStringLiteral("[TABELLE: Sheet %1]\n%1\n\n").arg(i);
        }
        QTest::addRow("digit runs sort by value, names by position") << ten << tenExpected;

        QTest::addRow("numbers in the general format")
            << WorkbookWriter::
                   Entries{{ws + QStringLiteral("sheet1.xml"),
                            sheetXml("<row><c><v>0.1</v></c><c><v>100000000</v></c><c><v>1234567</v></c>"
                                     "<c><v>1.2.3</v></c><c><v>1200</v></c><c><v>1.</v></c><c><v>0.5</v></"
                                     "c></row>")}}
            << QStringLiteral("[TABELLE: Sheet 1]\n0.1\t1e+08\t1.23457e+06\t1200\t1\t0.5\n\n");

        QTest::addRow("values close up; empty styled cells borrow the next value")
            << WorkbookWriter::
                   Entries{{ws + QStringLiteral("sheet1.xml"),
                            sheetXml(
                                "<row><c r=\"A1\"/><c r=\"B1\" t=\"inlineStr\"><is><t>x</t></is></c></row>"
                                "<row><c r=\"A2\" s=\"1\"/><c r=\"B2\"><v>5</v></c><c "
                                "r=\"C2\"><v>6</v></c></row>")}}
            << QStringLiteral("[TABELLE: Sheet 1]\nx\n5\t6\n\n");

        QTest::addRow("rows without values leave the marker alone")
            << WorkbookWriter::Entries{{ws + QStringLiteral("sheet1.xml"),
                                        sheetXml("<row><c r=\"A1\" s=\"2\"/></row><row/>")}}
            << QStringLiteral("[TABELLE: Sheet 1]\n\n");

        QTest::addRow("worksheet that is not UTF-8 is skipped, names stay by position")
            << WorkbookWriter::Entries{{QStringLiteral("xl/workbook.xml"),
                                        WorkbookWriter::workbookXml(
                                            {QStringLiteral("Eins"), QStringLiteral("Zwei")})},
                                       {ws + QStringLiteral("sheet1.xml"),
                                        sheetXml("<row><c t=\"str\"><t>caf\xe9</t></c></row>")},
                                       {ws + QStringLiteral("sheet2.xml"),
                                        sheetXml("<row><c><v>2</v></c></row>")}}
            << QStringLiteral("[TABELLE: Zwei]\n2\n\n");

        // Without the dot-all option a dot stops at every line terminator, LS and NEL included; rows and
        // cells are matched across lines.
        QTest::addRow("line terminators in shared strings")
            << WorkbookWriter::
                   Entries{{QStringLiteral("xl/sharedStrings.xml"),
                            "<sst><si><t>a\xe2\x80\xa8"
                            "b</t></si><si><t>c\xc2\x85"
                            "d</t></si><si><t>e\rf</t></si><si><t>ok</t></si></sst>"},
                           {ws + QStringLiteral("sheet1.xml"),
                            sheetXml("<row>\n<c t=\"s\">\n<v>0</v>\n</c>\n<c t=\"s\"><v>1</v></c></row>")}}
            << QStringLiteral("[TABELLE: Sheet 1]\nok\n\n");

        QTest::addRow("indexes that are not indexes")
            << WorkbookWriter::Entries{{QStringLiteral("xl/sharedStrings.xml"),
                                        WorkbookWriter::sharedStringsXml({QStringLiteral("a")})},
                                       {ws + QStringLiteral("sheet1.xml"),
                                        sheetXml("<row><c t=\"s\"><v>\xd9\xa0</v></c><c t=\"s\"><v>7</v></c>"
                                                 "<c t=\"s\"><v>99999999999999999999999</v></c><c "
                                                 "t=\"s\"><v>0</v></c></row>")}}
            << QStringLiteral("[TABELLE: Sheet 1]\na\n\n");

        QTest::addRow("only sheet*.xml directly in the folder")
            << WorkbookWriter::Entries{{ws + QStringLiteral("chart1.xml"),
                                        sheetXml("<row><c><v>1</v></c></row>")},
                                       {ws + QStringLiteral("_rels/sheet1.xml.rels"), "<Relationships/>"},
                                       {ws + QStringLiteral("sheet1.XML"),
                                        sheetXml("<row><c><v>2</v></c></row>")},
                                       {ws + QStringLiteral("sheet.xml"),
                                        sheetXml("<row><c><v>3</v></c></row>")},
                                       {ws + QStringLiteral("sheet1.xml"),
                                        sheetXml("<row><c><v>4</v></c></row>")}}
            << QStringLiteral("[TABELLE: Sheet 1]\n3\n\n[TABELLE: Sheet 2]\n4\n\n");
    }
    void extractsGeneratedWorkbooks()
    {
        QFETCH(WorkbookWriter::Entries, entries);
        QFETCH(QString, expected);
        const QString file = path(QStringLiteral("generated.xlsx"));
        QVERIFY(WorkbookWriter::writeZip(file, entries));
        QCOMPARE(XLSXHelper::extractText(file).value_or(QStringLiteral("<nothing>")), expected);
    }

    void logsFoundSheetsAndHeaders()
    {
        ConsoleCapture console;
        const auto text = XLSXHelper::extractText(TestEnvironment::fixture(
            QStringLiteral("xlsx/excel2007_formula_str_entities_sheetname_amp.xlsx")));
        QCOMPARE(text.value_or(QString()), QStringLiteral("[TABELLE: 5&amp;4]\n1\n\"&amp;&lt;&gt;\n\n"));
        const QStringList lines = console.lines();
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines.at(0).endsWith(QStringLiteral("] 📊 XLSX: Found 1 sheets, 1 shared strings")));
        QVERIFY(lines.at(1).endsWith(QStringLiteral("]    └─ Sheet [5&amp;4] Headers: 1")));
    }

    // What the patterns find in files written by real programs.
    void fixtures_data()
    {
        QTest::addColumn<QString>("fixture");
        QTest::addColumn<QString>("found");
        QTest::addColumn<QString>("contains");
        QTest::addRow("13 sheets in numeric order")
            << "excel2007_13_sheets"
            << "13 sheets, 1 shared strings"
            << "[TABELLE: Sheet9]\nFoo\n\n[TABELLE: Sheet10]\nFoo\n\n";
        QTest::addRow("entities stay") << "excel_6sheets_types_entities_str"
                                       << "6 sheets, 12 shared strings"
                                       << "[TABELLE: spc_chrs]\n&amp;\n&lt;\n&gt;\n";
        QTest::addRow("rich-text runs are entries of their own")
            << "excel_richtext_runs"
            << "3 sheets, 20 shared strings"
            << "[TABELLE: Sheet1]\nab\tcd\ta\tb\ncd\ta\tbc\td\n\n";
        QTest::addRow("phonetic runs are picked up") << "libreoffice_japanese_phonetic_rph"
                                                     << "1 sheets, 3 shared strings"
                                                     << "[TABELLE: Sheet1]\n課きく　毛こ\n\n";
        QTest::addRow("prefixed tags find nothing")
            << "prefixed_x_namespace_bom_inline"
            << "3 sheets, 0 shared strings"
            << "[TABELLE: Sheet1]\n\n[TABELLE: Sheet2]\n\n[TABELLE: Sheet3]\n\n";
        QTest::addRow("formula strings without <t>") << "excel_online_formula_str_korean_no_sst"
                                                     << "1 sheets, 0 shared strings"
                                                     << "[TABELLE: Sheet1]\n\n";
        QTest::addRow("sheet.xml sorts before sheet1.xml")
            << "apple_numbers_export_sheet_xml"
            << "2 sheets, 2 shared strings"
            << "[TABELLE: Sheet 1]\nSheet 1\n\n[TABELLE: Sheet 2]\nSheet 2\n\n";
        QTest::addRow("pretty-printed inline strings")
            << "inlinestr_rich_runs_pretty"
            << "1 sheets, 0 shared strings"
            << "1\t+\t1\tRQ11610\trequirement\tTextual Requirement\ttest\n";
        QTest::addRow("non-ASCII sheet name") << "chinese_sheetname_richtext_x000D"
                                              << "1 sheets, 41 shared strings"
                                              << "[TABELLE: 情人节活动]\n";
        QTest::addRow("sparse Mac workbook")
            << "excel_mac_5sheets_dates_percent_sparse"
            << "5 sheets, 17 shared strings"
            << "[TABELLE: Sheet3]\nganz weit rechts geht’s weiter\ti am AA\ti am AB\ti am BA\n\n";
        QTest::addRow("comments") << "google_sheets_comments"
                                  << "1 sheets, 1 shared strings"
                                  << "[TABELLE: Sheet1]\nThis is a cell.\n\n";
    }
    void fixtures()
    {
        QFETCH(QString, fixture);
        QFETCH(QString, found);
        QFETCH(QString, contains);
        ConsoleCapture console;
        const auto text =
            XLSXHelper::extractText(TestEnvironment::fixture(QStringLiteral("xlsx/%1.xlsx").arg(fixture)));
        QVERIFY(text.has_value());
        QVERIFY2(text->contains(contains), qPrintable(*text));
        QVERIFY(console.lines().first().endsWith(QStringLiteral("📊 XLSX: Found ") + found));
    }

    void unreadableArchivesGiveNothing_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QFile fixture(TestEnvironment::fixture(QStringLiteral("xlsx/excel2007_13_sheets.xlsx")));
        QVERIFY(fixture.open(QIODevice::ReadOnly));
        const QByteArray whole = fixture.readAll();
        QTest::addRow("truncated workbook") << whole.left(whole.size() / 2);
        QTest::addRow("not an archive") << QByteArray("Name;Ort\nMeier;Bern\n");
        QTest::addRow("empty file") << QByteArray();
    }
    void unreadableArchivesGiveNothing()
    {
        QFETCH(QByteArray, bytes);
        const QString file = path(QStringLiteral("broken.xlsx"));
        QFile out(file);
        QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(bytes);
        out.close();
        ConsoleCapture console;
        QVERIFY(!XLSXHelper::extractText(file).has_value());
        QVERIFY(console.text().endsWith(QStringLiteral("] 📊 XLSX: Found 0 sheets, 0 shared strings\n")));
        QVERIFY(!XLSXHelper::extractText(m_dir.path()).has_value()); // a folder is no workbook either
    }

    // A workbook that cannot be read at all is an error of the file operations, not an empty workbook.
    void missingWorkbookIsAnError()
    {
        ConsoleCapture console;
        QVERIFY(!XLSXHelper::extractText(path(QStringLiteral("fehlt.xlsx"))).has_value());
        QCOMPARE(console.lines().size(), 1);
        QVERIFY2(
            console.text().endsWith(QStringLiteral("] ❌ Error extracting XLSX: The file “fehlt.xlsx” "
                                                   "couldn’t be opened because there is no such file.\n")),
            qPrintable(console.text()));
    }

    // A row far longer than a backtracking engine's step budget, between ordinary ones: every row is
    // there, the ones after it too, in a part that arrives in many pieces.
    void hugeRowsAndEveryRowAfterThem()
    {
        QByteArray huge = "<row r=\"2\">";
        qsizetype cells = 0;
        quint32 seed = 7;
        while (huge.size() < 12'000'000) {
            seed = seed * 1103515245u + 12345u;
            huge += "<c><v>" + QByteArray::number(seed % 100000) + "</v></c>";
            ++cells;
        }
        huge += "</row>";
        QByteArray after;
        for (int r = 3; r <= 3000; ++r)
            after += "<row r=\"" + QByteArray::number(r) + "\"><c t=\"s\"><v>" + QByteArray::number(r % 2) +
                     "</v></c><c t=\"inlineStr\"><is><t>Zeile " + QByteArray::number(r) +
                     "</t></is></c></row>";
        const QString file = path(QStringLiteral("huge.xlsx"));
        QVERIFY(WorkbookWriter::writeZip(
            file,
            {{QStringLiteral("xl/sharedStrings.xml"),
              WorkbookWriter::sharedStringsXml({QStringLiteral("gerade"), QStringLiteral("ungerade")})},
             {QStringLiteral("xl/worksheets/sheet1.xml"),
              sheetXml("<row r=\"1\"><c t=\"inlineStr\"><is><t>Kopf</t></is></c></row>" + huge + after)}}));
        huge.clear();
        const QString text = XLSXHelper::extractText(file).value_or(QString());
        const QStringList lines = text.split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3 + 2998 + 2);
        QCOMPARE(lines.at(1), QStringLiteral("Kopf"));
        QCOMPARE(lines.at(2).count(QLatin1Char('\t')), cells - 1);
        QCOMPARE(lines.at(3), QStringLiteral("ungerade\tZeile 3"));
        QCOMPARE(lines.at(3000), QStringLiteral("gerade\tZeile 3000"));
    }

    // Shared strings are searched while the part arrives piece by piece: the list is the one the pattern
    // finds in the whole part, with elements cut between pieces, line breaks that end a match early and
    // text that is no element at all.
    void sharedStringsInPiecesAsInOnePiece()
    {
        const QStringList pieces{QStringLiteral("<si><t>"),
                                 QStringLiteral("</t></si>"),
                                 QStringLiteral("<t xml:space=\"preserve\">"),
                                 QStringLiteral("Wort "),
                                 QStringLiteral("\n"),
                                 QStringLiteral("\u2028"),
                                 QStringLiteral("<r><rPr/>"),
                                 QStringLiteral("</r>"),
                                 QStringLiteral("&amp;"),
                                 QStringLiteral("Straße 🇨🇭 "),
                                 QStringLiteral("<t"),
                                 QStringLiteral(">")};
        QRandomGenerator random(5);
        QString part = QStringLiteral("<sst>");
        while (part.size() < 3'000'000)
            part += pieces.at(random.bounded(int(pieces.size())));
        part += QStringLiteral("</sst>");

        QStringList expected;
        IcuRegex reference(QStringLiteral("<t[^>]*>(.*?)</t>"));
        reference.setText(part);
        reference.setRange(0, part.size());
        while (reference.findNext())
            expected.append(reference.captured(1).toString());
        QVERIFY(expected.size() > 10000);

        QByteArray rows;
        for (qsizetype i = 0; i < expected.size(); ++i)
            rows += "<row><c t=\"s\"><v>" + QByteArray::number(i) + "</v></c></row>";
        const QString file = path(QStringLiteral("strings.xlsx"));
        QVERIFY(
            WorkbookWriter::writeZip(file, {{QStringLiteral("xl/sharedStrings.xml"), part.toUtf8()},
                                            {QStringLiteral("xl/worksheets/sheet1.xml"), sheetXml(rows)}}));
        ConsoleCapture console;
        const QString text = XLSXHelper::extractText(file).value_or(QString());
        QVERIFY(console.lines().first().endsWith(QStringLiteral("📊 XLSX: Found 1 sheets, ") +
                                                 QString::number(expected.size()) +
                                                 QStringLiteral(" shared strings")));
        QCOMPARE(text, QStringLiteral("[TABELLE: Sheet 1]\n") + expected.join(QLatin1Char('\n')) +
                           QStringLiteral("\n\n"));
    }

    // A worksheet that turns out not to be UTF-8 long after its first rows is skipped as a whole, as if
    // it had been read whole before its first row was looked at.
    void lateInvalidBytesSkipTheWholeSheet()
    {
        QByteArray rows;
        for (int r = 0; r < 40000; ++r)
            rows += "<row><c><v>" + QByteArray::number(r) + "</v></c></row>";
        const QString file = path(QStringLiteral("late.xlsx"));
        QVERIFY(WorkbookWriter::writeZip(
            file, {{QStringLiteral("xl/workbook.xml"),
                    WorkbookWriter::workbookXml({QStringLiteral("Eins"), QStringLiteral("Zwei")})},
                   {QStringLiteral("xl/worksheets/sheet1.xml"),
                    sheetXml(rows + "<row><c t=\"str\"><t>caf\xe9</t></c></row>")},
                   {QStringLiteral("xl/worksheets/sheet2.xml"), sheetXml("<row><c><v>2</v></c></row>")}}));
        ConsoleCapture console;
        QCOMPARE(XLSXHelper::extractText(file).value_or(QString()), QStringLiteral("[TABELLE: Zwei]\n2\n\n"));
        QCOMPARE(console.lines().size(), 2);
        QVERIFY(console.lines().at(1).endsWith(QStringLiteral("   └─ Sheet [Zwei] Headers: 2")));
    }

    // Hostile archives are refused before they are inflated: the error line, nothing, and memory that
    // stays near what the test itself holds.
    void zipBombsAreRefused_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("error");
        const QString scratch = path(QStringLiteral("scratch.zip"));
        QVERIFY(WorkbookWriter::writeZip(
            scratch, {{QStringLiteral("xl/worksheets/sheet1.xml"), QByteArray(64 << 20, '\0')}}));
        QFile ratio(scratch);
        QVERIFY(ratio.open(QIODevice::ReadOnly));
        QTest::addRow("high ratio")
            << ratio.readAll()
            << QStringLiteral("The part xl/worksheets/sheet1.xml is compressed more than 100 to 1");
        // A sheet that inflates about 140 times, refused before anything is inflated.
        QByteArray dense;
        for (int i = 0; i < 800000; ++i)
            dense += "<row><c><v>" + QByteArray::number(i % 97) + "</v></c></row>";
        QVERIFY(WorkbookWriter::writeZip(scratch, {{QStringLiteral("xl/worksheets/sheet1.xml"), dense}}));
        dense.clear();
        QFile denseFile(scratch);
        QVERIFY(denseFile.open(QIODevice::ReadOnly));
        QTest::addRow("dense sheet")
            << denseFile.readAll()
            << QStringLiteral("The part xl/worksheets/sheet1.xml is compressed more than 100 to 1");
        QTest::addRow("overlapping entries")
            << overlappingBomb(scratch, 15 << 20, 140)
            << QStringLiteral("The part xl/worksheets/sheet1.xml is compressed more than 100 to 1");
        WorkbookWriter::Entries many;
        for (int i = 0; i <= 10000; ++i)
            many.append({QStringLiteral("xl/media/image%1.png").arg(i), QByteArray("x")});
        QVERIFY(WorkbookWriter::writeZip(scratch, many));
        QFile manyFile(scratch);
        QVERIFY(manyFile.open(QIODevice::ReadOnly));
        QTest::addRow("too many entries")
            << manyFile.readAll() << QStringLiteral("The archive holds more than 10000 entries");
    }
    void zipBombsAreRefused()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, error);
        QVERIFY(!bytes.isEmpty());
        const QString file = path(QStringLiteral("bomb.xlsx"));
        QFile out(file);
        QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
        out.write(bytes);
        out.close();
        const QStringList filesBefore = QDir(m_dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries);
        const QStringList tempBefore = QDir::temp().entryList(QDir::NoDotAndDotDot | QDir::AllEntries);
        const double before = peakRssMiB();
        ConsoleCapture console;
        QVERIFY(!XLSXHelper::extractText(file).has_value());
        QVERIFY(peakRssMiB() - before < 64);
        QCOMPARE(console.lines().size(), 1);
        QVERIFY2(console.text().endsWith(QStringLiteral("] ❌ Error extracting XLSX: ") + error +
                                         QLatin1Char('\n')),
                 qPrintable(console.text()));
        // nothing left behind
        QCOMPARE(QDir(m_dir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), filesBefore);
        QCOMPARE(QDir::temp().entryList(QDir::NoDotAndDotDot | QDir::AllEntries), tempBefore);
    }

    void numberFormat_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<QString>("text");
        QTest::addRow("integer") << 1200.0 << "1200";
        QTest::addRow("fraction") << 0.5 << "0.5";
        QTest::addRow("rounded to six digits") << 1234567.0 << "1.23457e+06";
        QTest::addRow("small") << 0.0001 << "0.0001";
        QTest::addRow("smaller") << 0.00001 << "1e-05";
        QTest::addRow("infinite") << qInf() << "inf";
    }
    void numberFormat()
    {
        QFETCH(double, value);
        QFETCH(QString, text);
        QCOMPARE(XLSXHelper::formatNumber(value), text);
    }
};

QUILLMOOR_TEST_MAIN(TestXLSXHelper)
#include "tst_xlsxhelper.moc"
