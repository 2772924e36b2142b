#include "SseLineSplitter.h"

#include <cstring>
#include <utility>

bool SseLineSplitter::emitLine(QByteArrayView bytes, const LineHandler &onLine)
{
    if (m_overlong) {
        m_overlong = false;
        return true;
    }
    return onLine(bytes);
}

bool SseLineSplitter::feed(QByteArrayView bytes, const LineHandler &onLine)
{
    const char *data = bytes.data();
    const qsizetype size = bytes.size();
    qsizetype pos = 0;
    if (m_pendingCR && size > 0) {
        m_pendingCR = false;
        if (data[0] == '\n')
            pos = 1;
    }
    while (pos < size) {
        // memchr is vectorised: find the next LF, then look for an earlier CR in front of it.
        const auto *lf = static_cast<const char *>(std::memchr(data + pos, '\n', size_t(size - pos)));
        const qsizetype lfAt = lf ? lf - data : size;
        const auto *cr = static_cast<const char *>(std::memchr(data + pos, '\r', size_t(lfAt - pos)));
        qsizetype end = cr ? cr - data : lfAt;
        if (end == size) {
            // No line end yet: keep the bytes (unless the line has grown past any sane event).
            if (!m_overlong) {
                if (m_partial.size() + (size - pos) > MaxLineBytes) {
                    m_partial.clear();
                    m_overlong = true;
                } else {
                    m_partial.append(data + pos, size - pos);
                }
            }
            return true;
        }
        bool keepGoing;
        if (m_partial.isEmpty()) {
            keepGoing = emitLine(QByteArrayView(data + pos, end - pos), onLine);
        } else {
            if (!m_overlong)
                m_partial.append(data + pos, end - pos);
            keepGoing = emitLine(m_partial, onLine);
            m_partial.clear();
        }
        if (data[end] == '\r') {
            if (end + 1 < size) {
                if (data[end + 1] == '\n')
                    ++end;
            } else {
                m_pendingCR = true;
            }
        }
        pos = end + 1;
        if (!keepGoing)
            return false;
    }
    return true;
}

bool SseLineSplitter::finish(const LineHandler &onLine)
{
    m_pendingCR = false;
    if (m_partial.isEmpty() && !m_overlong)
        return true;
    const QByteArray last = std::exchange(m_partial, {});
    return emitLine(last, onLine);
}
