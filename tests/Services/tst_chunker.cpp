#include "TestMain.h"

#include "CaseFiles.h"

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
        QTest::addRow("CR LF has no blank line") << a + "\r\n\r\n" + b << QStringList{a + "\r\n\r\n" + b};
        QTest::addRow("only blanks") << QStringLiteral(" \n\n\t\n\n\u00a0\n") << QStringList{};
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

    // Cases in tests/data/chunker: a file name and its text, then its chunks, description and schema (none
    // when the file is not a table).
    void plan_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("chunks");
        QTest::addColumn<QString>("description");
        QTest::addColumn<QString>("schema");
        const auto cases = CaseFiles::cases(u"chunker"_s);
        QVERIFY(!cases.isEmpty());
        for (const auto &[row, values] : cases)
            QTest::newRow(row.constData()) << values.at(0).toString() << values.at(1).toString()
                                           << values.at(2).toVariant().toStringList()
                                           << values.at(3).toString() << values.at(4).toString(u"none"_s);
    }
    void plan()
    {
        QFETCH(QString, name);
        QFETCH(QString, text);
        QFETCH(QStringList, chunks);
        QFETCH(QString, description);
        QFETCH(QString, schema);
        ConsoleCapture console;
        const Chunker::ChunkPlan plan = Chunker::plan(name, text);
        QCOMPARE(plan.chunks, chunks);
        QCOMPARE(plan.description, description);
        QCOMPARE(plan.schema.value_or(u"none"_s), schema);
        // A table's one line, unless there was no table at all.
        QCOMPARE(console.text().section(u"] "_s, 1),
                 schema == u"none"_s || schema.isEmpty()
                     ? QString()
                     : u"📦 rowLevelChunk: %1 chunks, schema: %2\n"_s.arg(chunks.size()).arg(schema));
    }

    // Row chunks share their memory; changing one must leave its neighbours, and their ends, as they were.
    void rowChunksAreIndependentStrings()
    {
        ConsoleCapture console;
        QStringList chunks = Chunker::rowLevelChunk(u"a\tb\n1\t2\n3\t4\n5\t6\n7\t8"_s).chunks;
        QCOMPARE(chunks.size(), 4);
        const QStringList before = chunks;
        chunks[0].append(u" und mehr"_s);
        chunks[1].replace(u"3"_s, u"drei"_s);
        chunks[3].resize(2);
        QCOMPARE(chunks[0], before[0] + u" und mehr"_s);
        QCOMPARE(chunks[1], QString(before[1]).replace(u"3"_s, u"drei"_s));
        QCOMPARE(chunks[2], before[2]);
        for (const QString &chunk : std::as_const(chunks))
            QCOMPARE(chunk.utf16()[chunk.size()], u'\0');
    }
};

QUILLMOOR_TEST_MAIN(TestChunker)
#include "tst_chunker.moc"
