#include "TestMain.h"

#include "ConsoleCapture.h"
#include "Services/Chunker.h"

using namespace Qt::StringLiterals;

namespace {

QString words(int n, const QString &word = QStringLiteral("w"))
{
    QStringList list;
    for (int i = 0; i < n; ++i)
        list.append(word + QString::number(i));
    return list.join(QLatin1Char(' '));
}

} // namespace

class TestChunker : public QObject {
    Q_OBJECT
private slots:
    void paragraphs_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("chunks");
        const QString a = words(150, QStringLiteral("a")), b = words(100, QStringLiteral("b")),
                      c = words(10, QStringLiteral("c"));
        QTest::addRow("last paragraph carried over")
            << a + "\n\n" + b + "\n\n" + c << QStringList{a, a + "\n" + b, b + "\n" + c};
        QTest::addRow("exactly the chunk size stays together") << b + "\n\n" + b << QStringList{b + "\n" + b};
        QTest::addRow("no blank line, one chunk") << words(900) << QStringList{words(900)};
        QTest::addRow("CR LF has no blank line") << a + "\r\n\r\n" + b << QStringList{a + "\r\n\r\n" + b};
        QTest::addRow("only blanks") << QStringLiteral(" \n\n\t\n\n\u00a0\n") << QStringList{};
        QTest::addRow("trimmed and joined by one break")
            << QStringLiteral("  eins  \n\n\n\n zwei\n\n") << QStringList{"eins\nzwei"};
        QTest::addRow("Unicode spaces split words")
            << a + "\n\n" + words(60).replace(' ', QChar(0x3000))
            << QStringList{a, a + "\n" + words(60).replace(' ', QChar(0x3000))};
        QTest::addRow("long carried paragraph flushes twice")
            << c + "\n\n" + words(250) + "\n\n" + c
            << QStringList{c, c + "\n" + words(250), words(250) + "\n" + c};
    }
    void paragraphs()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, chunks);
        QCOMPARE(Chunker::simpleChunkText(text, 200, 30), chunks);
    }

    void rows_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("chunks");
        QTest::addColumn<QString>("schema");
        QTest::addRow("named table")
            << "[TABELLE: Kunden]\nName\tOrt\tUmsatz\nMeier\tBern\t-\nHuber\t\t1200\tX\n"
            << QStringList{"[Kunden] Name: Meier; Ort: Bern",
                           "[Kunden] Name: Huber; Umsatz: 1200; Spalte 4: X"}
            << "Tabelle [Kunden] mit Spalten: Name, Ort, Umsatz";
        QTest::addRow("comma separated is one cell")
            << "Name,Ort\nMeier,Bern\r\nHuber,Chur"
            << QStringList{"Name,Ort: Meier,Bern", "Name,Ort: Huber,Chur"}
            << "Tabelle [] mit Spalten: Name,Ort";
        QTest::addRow("leading tab is trimmed away") << "A\tB\n\tb\n"
                                                     << QStringList{"A: b"} << "Tabelle [] mit Spalten: A, B";
        QTest::addRow("dash markers and empty names")
            << "--- Umsatz 2024 ---\nQ\tBetrag\n1\t-\n---\nX\n\u2028y\u2029\n"
            << QStringList{"[Umsatz 2024] Q: 1", "X: y"}
            << "Tabelle [Umsatz 2024] mit Spalten: Q, Betrag; Tabelle [] mit Spalten: X";
        QTest::addRow("header without rows")
            << "[TABELLE: Leer]\nA\tB\n\n[TABELLE: Voll]\nC\nc\n"
            << QStringList{"[Voll] C: c"}
            << "Tabelle [Leer] mit Spalten: A, B; Tabelle [Voll] mit Spalten: C";
        QTest::addRow("blank") << " \t\n\r\n" << QStringList() << QString();
    }
    void rows()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, chunks);
        QFETCH(QString, schema);
        ConsoleCapture console;
        const Chunker::RowChunks result = Chunker::rowLevelChunk(text);
        QCOMPARE(result.chunks, chunks);
        QCOMPARE(result.schema, schema);
        // One line, unless there was no table at all.
        QCOMPARE(console.text().section(u"] "_s, 1),
                 schema.isEmpty()
                     ? QString()
                     : u"📦 rowLevelChunk: %1 chunks, schema: %2\n"_s.arg(chunks.size()).arg(schema));
    }

    // Tables by extension, everything else in paragraphs under the file's name without its last extension:
    // a file name that starts or ends with its only dot has no extension.
    void plan_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("chunks");
        QTest::addColumn<QString>("description");
        QTest::addRow("paragraphs") << u"Bericht 2024.final.pdf"_s
                                    << "  Das\t" + words(24) + "\n\nZweiter Absatz."
                                    << QStringList{"[Bericht 2024.final] Das\t" + words(24) +
                                                   "\nZweiter Absatz."}
                                    << "1 Abschnitte. Beginn: Das " + words(19) + "...";
        QTest::addRow("table") << u"Preise.CSV"_s << u"A\tB\n1\t2\n"_s << QStringList{u"A: 1; B: 2"_s}
                               << u"Tabelle [] mit Spalten: A, B"_s;
        QTest::addRow("hidden") << u".csv"_s << u"A\tB"_s << QStringList{u"[.csv] A\tB"_s}
                                << u"1 Abschnitte. Beginn: A B..."_s;
        QTest::addRow("trailing dot")
            << u"notes."_s << u"x"_s << QStringList{u"[notes.] x"_s} << u"1 Abschnitte. Beginn: x..."_s;
        QTest::addRow("nothing to embed") << u"leer.txt"_s << u"\n\n  \n\n"_s << QStringList() << QString();
    }
    void plan()
    {
        QFETCH(QString, name);
        QFETCH(QString, text);
        QFETCH(QStringList, chunks);
        QFETCH(QString, description);
        const Chunker::ChunkPlan plan = Chunker::plan(name, text);
        QCOMPARE(plan.chunks, chunks);
        QCOMPARE(plan.description, description);
        QCOMPARE(plan.schema.value_or(u"none"_s),
                 description.startsWith(u"Tabelle"_s) ? description : u"none"_s);
    }
};

QUILLMOOR_TEST_MAIN(TestChunker)
#include "tst_chunker.moc"
