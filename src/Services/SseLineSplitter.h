#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <functional>

// Cuts a byte stream into lines as the bytes arrive. A line ends at LF, CR or CR LF (one end, also when the
// CR closes one read and the LF opens the next); the ends are not part of the line. Bytes are kept until
// their line is complete, so a character split between reads is never cut; lines are handed on as bytes.
class SseLineSplitter {
public:
    using LineHandler = std::function<bool(QByteArrayView line)>; // return false to stop

    // Longer lines are dropped whole rather than held without bound.
    static constexpr qsizetype MaxLineBytes = 64 * 1024 * 1024;

    // Feeds bytes; calls `onLine` per complete line. Returns false once a handler asked to stop.
    bool feed(QByteArrayView bytes, const LineHandler &onLine);
    // The body ended: a last line without line end still counts.
    bool finish(const LineHandler &onLine);

private:
    bool emitLine(QByteArrayView bytes, const LineHandler &onLine);

    QByteArray m_partial;
    bool m_pendingCR = false;
    bool m_overlong = false;
};
