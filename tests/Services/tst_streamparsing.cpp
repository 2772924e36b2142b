#include "CaseFiles.h"
#include "Services/SseLineSplitter.h"
#include "Services/StreamEvent.h"
#include "TestMain.h"

#include <QDir>

using namespace Qt::StringLiterals;

class TestStreamParsing : public QObject {
    Q_OBJECT
private slots:
    void lineEnds_data()
    {
        QTest::addColumn<QList<QByteArray>>("reads");
        QTest::addColumn<QStringList>("lines");
        QTest::addRow("empty reads") << QList<QByteArray>{"", "a", "", "\n", ""} << QStringList{"a"};
        QTest::addRow("stops when asked") << QList<QByteArray>{"a\nstop\nc\n"} << QStringList{"a", "stop"};
        // Lines past the limit are dropped whole, and the lines around them still arrive.
        const QByteArray block(16 * 1024 * 1024, 'x');
        QTest::addRow("80 MB without a line end")
            << QList<QByteArray>{"first\n", block, block, block, block, block, "\nlast\n"}
            << QStringList{"first", "last"};
        // Every cut into two reads: inside a character, between CR and LF, between two ends of any kind, in a
        // line without end.
        const QByteArray body = QStringLiteral("Grüße 😊\r\nb\rc\n\nd\n\re\r\rf").toUtf8();
        for (qsizetype cut = 0; cut <= body.size(); ++cut)
            QTest::addRow("cut at %d", int(cut))
                << QList<QByteArray>{body.left(cut), body.mid(cut)}
                << QStringList{QStringLiteral("Grüße 😊"), "b", "c", "", "d", "", "e", "", "f"};
    }
    // The reads go in one after another; the last line counts without its end, and a line "stop" asks the
    // splitter to stop.
    void lineEnds()
    {
        QFETCH(QList<QByteArray>, reads);
        QFETCH(QStringList, lines);
        SseLineSplitter splitter;
        QStringList split;
        const auto collect = [&](QByteArrayView line) {
            split.append(QString::fromUtf8(line));
            return line != QByteArrayView("stop");
        };
        bool going = true;
        for (const QByteArray &read : reads)
            going = going && splitter.feed(read, collect);
        if (going)
            splitter.finish(collect);
        QCOMPARE(split, lines);
    }

    void events_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("content");
        const int ignore = int(StreamEvent::Kind::Ignore);
        const int piece = int(StreamEvent::Kind::Piece);
        const int done = int(StreamEvent::Kind::Done);
        // An event whose one delta has this content, and these members after the choices.
        const auto event = [](const QString &content, const QString &more = {}) {
            return R"(data: {"choices":[{"delta":{"content":)" + content + u"}}]"_s + more + u'}';
        };
        QTest::addRow("piece") << event(R"("Hal")") << piece << "Hal";
        QTest::addRow("empty piece") << event(R"("")") << piece << "";
        QTest::addRow("done") << "data: [DONE]" << done << "";
        QTest::addRow("done with trailing space") << "data: [DONE] " << ignore << "";
        // Lines to skip, one file each: not an event of ours, or an event that does not read.
        const QDir ignored(TestEnvironment::data(u"streamparsing/ignored"_s));
        for (const QString &name : ignored.entryList(QDir::Files))
            QTest::addRow("%s", qPrintable(name.chopped(4)))
                << QString::fromUtf8(CaseFiles::read(ignored.filePath(name)).chopped(1)) << ignore << "";
        QTest::addRow("second choice ignored")
            << R"(data: {"choices":[{"index":1,"delta":{"content":"A"}},{"index":0,"delta":{"content":"B"}}]})"
            << piece << "A";
        QTest::addRow("escapes") << event(R"("a\nb \u00e9 \ud83d\ude0a")") << piece << u"a\nb é 😊"_s;
        QTest::addRow("number at the edge of double")
            << event(R"("x")", R"(,"n":1.7976931348623157e308,"m":4.9e-324)") << piece << "x";
        // A byte-order mark inside the text is a character (where one opens a string, Qt's parser decides).
        QTest::addRow("byte-order mark after an escape")
            << event(u"\"\\\"\uFEFF\""_s) << piece << u"\"\uFEFF"_s;
    }
    void events()
    {
        QFETCH(QString, line);
        QFETCH(int, kind);
        QFETCH(QString, content);
        const QByteArray bytes = line.toUtf8();
        const StreamEvent event = StreamEvent::parse(bytes);
        QCOMPARE(int(event.kind), kind);
        QCOMPARE(event.content, content);
        const StreamEvent reference = StreamEvent::parseWithDocument(bytes);
        QCOMPARE(int(reference.kind), kind);
        QCOMPARE(reference.content, content);
    }

    // The fast reader must decide every line exactly as Qt's JSON parser does: recorded streams, the lines of
    // tests/data/streamparsing/oddities.sse and a byte-order mark seed, each with every prefix and every
    // one-byte change, and oddities whose point is a byte.
    void fastReaderAgreesWithQtParser()
    {
        QList<QByteArray> lines;
        const QDir recorded(TestEnvironment::fixture(u"sse"_s));
        for (const QString &name : recorded.entryList(QDir::Files))
            for (const QByteArray &line : CaseFiles::read(recorded.filePath(name)).split('\n'))
                lines.append(line.endsWith('\r') ? line.chopped(1) : line);
        QList<QByteArray> seeds =
            CaseFiles::read(TestEnvironment::data(u"streamparsing"_s) + u"/oddities.sse"_s).split('\n');
        seeds.append(
            "data: "
            "{\"choices\":[{\"delta\":{\"content\":\"\\\"\xef\xbb\xbf\\n\xef\xbb\xbf\"}}],\"n\":-12345678."
            "901234567}");
        for (const QByteArray &seed : std::as_const(seeds)) {
            for (qsizetype cut = 0; cut <= seed.size(); ++cut)
                lines.append(seed.left(cut));
            for (qsizetype i = 6; i < seed.size(); ++i)
                for (const char replacement :
                     {'"', '{', '}', '[', ']', ',', ':', '\\', 'x', '0', ' ', '\x01', '\xff'}) {
                    QByteArray mutated = seed;
                    mutated[i] = replacement;
                    lines.append(mutated);
                }
        }
        // Oddities whose point is a byte, as they are.
        lines += QList<QByteArray>{
            "data: {\"choices\":[{\"delta\":{\"content\":\"tab\tinside\"}}]}",
            "data:  {\"choices\":[{\"delta\":{\"content\":\"x\"}}]} ",
            // A NUL byte inside the content (in a literal, "\x00b" would be one 0x0B character).
            "data: {\"choices\":[{\"delta\":{\"content\":\"nul" + QByteArray(1, '\0') + "byte\"}}]}",
            "data: " + QByteArray(100, '[') + QByteArray(100, ']'),
            "data: {\"a\":" + QByteArray(80, '[') + QByteArray(80, ']') +
                ",\"choices\":[{\"delta\":{\"content\":\"deep\"}}]}",
            "data: {\"a\":" + QByteArray(1100, '[') + QByteArray(1100, ']') +
                ",\"choices\":[{\"delta\":{\"content\":\"deeper\"}}]}",
            "data: {\"choices\":[{\"delta\":{\"content\":\"\xef\xbb\xbfx\\n\"}}]}",
            "data: {\"choices\":[{\"delta\":{\"content\":\"\xef\xbb\xbf\"}}]}",
            "data: {\"choices\":[{\"delta\":{\"content\":\"bad \xc3\x28 \xed\xa0\x80\"}}]}",
            "data: {\"choices\":[{\"delta\":{\"content\":\"x\"}}]}   \t ",
            "data: \xef\xbb\xbf{\"choices\":[{\"delta\":{\"content\":\"x\"}}]}",
        };
        for (const QByteArray &line : lines) {
            const StreamEvent fast = StreamEvent::parse(line);
            const StreamEvent reference = StreamEvent::parseWithDocument(line);
            if (fast.kind != reference.kind || fast.content != reference.content)
                QFAIL(qPrintable(QStringLiteral("disagreement on: ") +
                                 QString::fromUtf8(line.toPercentEncoding(" {}[]\":,"))));
        }
    }
};

QUILLMOOR_TEST_MAIN(TestStreamParsing)
#include "tst_streamparsing.moc"
