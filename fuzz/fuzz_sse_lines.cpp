// The answer body cut into reads at places taken from the input, through the line splitter: the lines must
// be the same as those of the whole body read at once and as a plain reading of the line-end rule (LF, CR
// or CR LF, one end each), and every line goes on to the event reader as in a turn.
#include "FuzzSupport.h"

#include "Services/SseLineSplitter.h"
#include "Services/StreamEvent.h"

#include <QList>

#include <cstdlib>

QUILLMOOR_FUZZ_INIT

namespace {

QList<QByteArray> splitInReads(const QByteArray &body, const QList<qsizetype> &cuts)
{
    SseLineSplitter splitter;
    QList<QByteArray> lines;
    const auto collect = [&lines](QByteArrayView line) {
        lines.append(line.toByteArray());
        return true;
    };
    qsizetype from = 0;
    for (qsizetype cut : cuts) {
        splitter.feed(QByteArrayView(body).sliced(from, cut - from), collect);
        from = cut;
    }
    splitter.feed(QByteArrayView(body).sliced(from), collect);
    splitter.finish(collect);
    return lines;
}

QList<QByteArray> plainReading(const QByteArray &body)
{
    QList<QByteArray> lines;
    QByteArray line;
    for (qsizetype i = 0; i < body.size(); ++i) {
        const char c = body[i];
        if (c == '\n' || c == '\r') {
            lines.append(line);
            line.clear();
            if (c == '\r' && i + 1 < body.size() && body[i + 1] == '\n')
                ++i;
        } else {
            line.append(c);
        }
    }
    if (!line.isEmpty())
        lines.append(line);
    return lines;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    // The first byte spaces the cuts; the rest is the body.
    const qsizetype step = data[0] % 16 + 1;
    const QByteArray body = Fuzz::bytes(data + 1, size - 1);
    QList<qsizetype> cuts;
    for (qsizetype at = step; at < body.size(); at += step + (at % 3))
        cuts.append(at);

    const QList<QByteArray> whole = splitInReads(body, {});
    if (splitInReads(body, cuts) != whole || plainReading(body) != whole)
        std::abort();
    for (const QByteArray &line : whole)
        if (StreamEvent::parse(line).kind == StreamEvent::Kind::Done)
            break;
    return 0;
}
