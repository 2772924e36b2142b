#include "Services/SseLineSplitter.h"
#include "Services/StreamEvent.h"
#include "TestMain.h"

namespace {

// Feeds the reads one after another and returns the lines, the last unterminated one included.
QStringList split(const QList<QByteArray> &reads) {
    SseLineSplitter splitter;
    QStringList lines;
    const auto collect = [&](const QString &line) {
        lines.append(line);
        return true;
    };
    for (const QByteArray &read : reads)
        splitter.feed(read, collect);
    splitter.finish(collect);
    return lines;
}

} // namespace

class TestStreamParsing : public QObject {
    Q_OBJECT
private slots:
    void lineEnds_data() {
        QTest::addColumn<QList<QByteArray>>("reads");
        QTest::addColumn<QStringList>("lines");
        QTest::addRow("LF") << QList<QByteArray>{"a\nb\n"} << QStringList{"a", "b"};
        QTest::addRow("CR") << QList<QByteArray>{"a\rb\r"} << QStringList{"a", "b"};
        QTest::addRow("CRLF is one end") << QList<QByteArray>{"a\r\nb\r\n"} << QStringList{"a", "b"};
        QTest::addRow("LF CR is two ends") << QList<QByteArray>{"a\n\rb"} << QStringList{"a", "", "b"};
        QTest::addRow("blank lines kept") << QList<QByteArray>{"a\n\n\nb"} << QStringList{"a", "", "", "b"};
        QTest::addRow("CR then LF in the next read")
            << QList<QByteArray>{"a\r", "\nb\n"} << QStringList{"a", "b"};
        QTest::addRow("CR then CR in the next read")
            << QList<QByteArray>{"a\r", "\rb"} << QStringList{"a", "", "b"};
        QTest::addRow("CR alone at the end") << QList<QByteArray>{"a\r", "b"} << QStringList{"a", "b"};
        QTest::addRow("line across reads")
            << QList<QByteArray>{"da", "ta: x", "y\n"} << QStringList{"data: xy"};
        QTest::addRow("last line without end") << QList<QByteArray>{"a\nb"} << QStringList{"a", "b"};
        QTest::addRow("empty reads") << QList<QByteArray>{"", "a", "", "\n", ""} << QStringList{"a"};
        QTest::addRow("nothing") << QList<QByteArray>{} << QStringList{};
    }
    void lineEnds() {
        QFETCH(QList<QByteArray>, reads);
        QFETCH(QStringList, lines);
        QCOMPARE(split(reads), lines);
    }

    void utf8AcrossReads() {
        const QByteArray text = QStringLiteral("Grüße 😊 É").toUtf8();
        // Every possible cut, including inside the four bytes of the emoji.
        for (qsizetype cut = 0; cut <= text.size(); ++cut)
            QCOMPARE(split({text.left(cut), text.mid(cut) + "\n"}), QStringList{QStringLiteral("Grüße 😊 É")});
        // Bytes that are not UTF-8 become replacement characters, and the line still arrives.
        QCOMPARE(split({"a\xff\xfe"
                        "b\n"}),
                 QStringList{QStringLiteral("a\uFFFD\uFFFDb")});
    }

    void overlongLineIsDropped() {
        SseLineSplitter splitter;
        QStringList lines;
        const auto collect = [&](const QString &line) {
            lines.append(line);
            return true;
        };
        const QByteArray block(16 * 1024 * 1024, 'x');
        splitter.feed("first\n", collect);
        for (int i = 0; i < 5; ++i) // 80 MB without a line end
            splitter.feed(block, collect);
        splitter.feed("\nlast\n", collect);
        QCOMPARE(lines, QStringList({QStringLiteral("first"), QStringLiteral("last")}));
        QCOMPARE(splitter.droppedLines(), 1);
    }

    void stopsWhenAsked() {
        SseLineSplitter splitter;
        QStringList lines;
        QVERIFY(!splitter.feed("a\nb\nc\n", [&](const QString &line) {
            lines.append(line);
            return line != QLatin1String("b");
        }));
        QCOMPARE(lines, QStringList({QStringLiteral("a"), QStringLiteral("b")}));
    }

    void events_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("content");
        const int ignore = int(StreamEvent::Kind::Ignore);
        const int piece = int(StreamEvent::Kind::Piece);
        const int done = int(StreamEvent::Kind::Done);
        QTest::addRow("piece") << R"(data: {"choices":[{"delta":{"content":"Hal"}}]})" << piece << "Hal";
        QTest::addRow("empty piece") << R"(data: {"choices":[{"delta":{"content":""}}]})" << piece << "";
        QTest::addRow("done") << "data: [DONE]" << done << "";
        QTest::addRow("done without space") << "data:[DONE]" << ignore << "";
        QTest::addRow("no space after colon")
            << R"(data:{"choices":[{"delta":{"content":"x"}}]})" << ignore << "";
        QTest::addRow("done with trailing space") << "data: [DONE] " << ignore << "";
        QTest::addRow("comment") << ": keep-alive" << ignore << "";
        QTest::addRow("other field") << "event: message" << ignore << "";
        QTest::addRow("empty line") << "" << ignore << "";
        QTest::addRow("null content") << R"(data: {"choices":[{"delta":{"content":null}}]})" << ignore << "";
        QTest::addRow("role only") << R"(data: {"choices":[{"delta":{"role":"assistant"}}]})" << ignore << "";
        QTest::addRow("number content") << R"(data: {"choices":[{"delta":{"content":5}}]})" << ignore << "";
        QTest::addRow("no delta") << R"(data: {"choices":[{"finish_reason":"stop"}]})" << ignore << "";
        QTest::addRow("delta not object") << R"(data: {"choices":[{"delta":"x"}]})" << ignore << "";
        QTest::addRow("empty choices") << R"(data: {"choices":[],"usage":{}})" << ignore << "";
        QTest::addRow("choices not array")
            << R"(data: {"choices":{"delta":{"content":"x"}}})" << ignore << "";
        QTest::addRow("choice not object")
            << R"(data: {"choices":[{"delta":{"content":"x"}},3]})" << ignore << "";
        QTest::addRow("top level array") << R"(data: [{"choices":[]}])" << ignore << "";
        QTest::addRow("broken json") << R"(data: {"choices":[{"delta":{"content":"x"})" << ignore << "";
        QTest::addRow("second choice ignored")
            << R"(data: {"choices":[{"index":1,"delta":{"content":"A"}},{"index":0,"delta":{"content":"B"}}]})"
            << piece << "A";
        QTest::addRow("escapes") << R"(data: {"choices":[{"delta":{"content":"a\nb \u00e9 \ud83d\ude0a"}}]})"
                                 << piece << QStringLiteral("a\nb é 😊");
    }
    void events() {
        QFETCH(QString, line);
        QFETCH(int, kind);
        QFETCH(QString, content);
        const StreamEvent event = StreamEvent::parse(line);
        QCOMPARE(int(event.kind), kind);
        QCOMPARE(event.content, content);
    }
};

QUILLMOOR_TEST_MAIN(TestStreamParsing)
#include "tst_streamparsing.moc"
