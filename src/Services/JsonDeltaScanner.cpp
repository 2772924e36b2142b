#include "JsonDeltaScanner.h"

#include <QStringDecoder>

#include <array>
#include <cctype>
#include <optional>
#include <string_view>

namespace {

using JsonDeltaScanner::Outcome;

constexpr int MaxDepth = 64;

// The bytes inside a string that end it or need a closer look: the quote, the backslash, control characters
// and everything beyond ASCII.
constexpr std::array<bool, 256> AttentionTable = [] {
    std::array<bool, 256> table{};
    for (int c = 0; c < 256; ++c)
        table[size_t(c)] = c == '"' || c == '\\' || c < 0x20 || c >= 0x80;
    return table;
}();

inline bool needsAttention(unsigned char c)
{
    return AttentionTable[c];
}

class Scanner {
public:
    explicit Scanner(QByteArrayView json)
        : m_p(json.data())
        , m_end(json.data() + json.size())
    {
    }

    // Validates the document; fills what the path choices[0].delta.content needs.
    bool document()
    {
        skipSpace();
        if (m_p == m_end || *m_p != '{')
            return false;
        if (!topObject())
            return false;
        skipSpace();
        return m_p == m_end;
    }

    bool unsure = false;
    bool choicesSeen = false;
    bool choicesIsArray = false;
    bool choicesAllObjects = true;
    int choiceCount = 0;
    bool deltaIsObject = false;
    bool deltaSeen = false;
    std::optional<QByteArrayView> contentRaw; // the string's bytes between the quotes
    bool contentSeen = false;
    bool contentHasEscapes = false;

private:
    void skipSpace()
    {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\n' || *m_p == '\r'))
            ++m_p;
    }

    bool literal(const char *word)
    {
        for (; *word; ++word, ++m_p)
            if (m_p == m_end || *m_p != *word)
                return false;
        return true;
    }

    bool number()
    {
        if (m_p < m_end && *m_p == '-')
            ++m_p;
        if (m_p == m_end)
            return false;
        const char *digits = m_p;
        if (*m_p == '0') {
            ++m_p;
        } else if (*m_p >= '1' && *m_p <= '9') {
            while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
                ++m_p;
        } else {
            return false;
        }
        qsizetype digitCount = m_p - digits;
        if (m_p < m_end && *m_p == '.') {
            ++m_p;
            if (m_p == m_end || *m_p < '0' || *m_p > '9')
                return false;
            const char *fraction = m_p;
            while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
                ++m_p;
            digitCount += m_p - fraction;
        }
        // Qt's parser rejects a number beyond the range of a double, too large or too small to be told
        // from zero. Seventeen digits without an exponent always fit; anything else it judges itself.
        if (digitCount > 17)
            unsure = true;
        if (m_p < m_end && (*m_p == 'e' || *m_p == 'E')) {
            unsure = true;
            ++m_p;
            if (m_p < m_end && (*m_p == '+' || *m_p == '-'))
                ++m_p;
            if (m_p == m_end || *m_p < '0' || *m_p > '9')
                return false;
            while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
                ++m_p;
        }
        return true;
    }

    // Reads a string; `raw` receives the bytes between the quotes.
    bool string(QByteArrayView *raw = nullptr, bool *escapes = nullptr)
    {
        ++m_p; // opening quote
        const char *start = m_p;
        bool escaped = false;
        while (m_p < m_end) {
            // Most of a string is plain ASCII: skip it in a tight loop before looking closer.
            while (m_p < m_end && !needsAttention(static_cast<unsigned char>(*m_p)))
                ++m_p;
            if (m_p == m_end)
                break;
            const unsigned char c = static_cast<unsigned char>(*m_p);
            if (c == '"') {
                if (raw)
                    *raw = QByteArrayView(start, m_p - start);
                if (escapes)
                    *escapes = escaped;
                ++m_p;
                return true;
            }
            if (c < 0x20 || c >= 0x80) {
                // Control characters and anything beyond ASCII are judged by Qt's parser, except
                // well-formed UTF-8, which is common (umlauts, emoji) and checked here.
                if (c < 0x20 || !utf8Sequence())
                    unsure = true;
                if (unsure)
                    return false;
                continue;
            }
            if (c == '\\') {
                escaped = true;
                ++m_p;
                if (m_p == m_end)
                    return false;
                const char e = *m_p;
                if (e == 'u') {
                    for (int i = 1; i <= 4; ++i)
                        if (m_p + i >= m_end || !isxdigit(static_cast<unsigned char>(m_p[i])))
                            return false;
                    m_p += 5;
                    continue;
                }
                if (e != '"' && e != '\\' && e != '/' && e != 'b' && e != 'f' && e != 'n' && e != 'r' &&
                    e != 't')
                    return false;
            }
            ++m_p;
        }
        return false;
    }

    bool utf8Sequence()
    {
        const unsigned char c = static_cast<unsigned char>(*m_p);
        int length = 0;
        unsigned int min = 0;
        unsigned int code = 0;
        if (c >= 0xC2 && c <= 0xDF) {
            length = 2, min = 0x80, code = c & 0x1F;
        } else if (c >= 0xE0 && c <= 0xEF) {
            length = 3, min = 0x800, code = c & 0x0F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            length = 4, min = 0x10000, code = c & 0x07;
        } else {
            return false;
        }
        if (m_end - m_p < length)
            return false;
        for (int i = 1; i < length; ++i) {
            const unsigned char k = static_cast<unsigned char>(m_p[i]);
            if ((k & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (k & 0x3F);
        }
        if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
        m_p += length;
        return true;
    }

    bool value(int depth)
    {
        skipSpace();
        if (m_p == m_end)
            return false;
        switch (*m_p) {
        case '{':
            return object(depth + 1, nullptr);
        case '[':
            return array(depth + 1, nullptr);
        case '"':
            return string();
        case 't':
            return literal("true");
        case 'f':
            return literal("false");
        case 'n':
            return literal("null");
        default:
            return number();
        }
    }

    enum class Next { More, Closed, Broken };

    // After a member or an element: a comma asks for more, `close` ends the container.
    Next afterItem(char close)
    {
        skipSpace();
        if (m_p == m_end)
            return Next::Broken;
        if (*m_p == ',') {
            ++m_p;
            return Next::More;
        }
        if (*m_p == close) {
            ++m_p;
            return Next::Closed;
        }
        return Next::Broken;
    }

    enum class Level { Top, Choice0, Delta };

    // Walks an object's members; on the path to the piece, remembers what it finds.
    bool object(int depth, const Level *level)
    {
        if (depth > MaxDepth) {
            unsure = true;
            return false;
        }
        ++m_p; // '{'
        skipSpace();
        if (m_p < m_end && *m_p == '}') {
            ++m_p;
            return true;
        }
        for (;;) {
            skipSpace();
            if (m_p == m_end || *m_p != '"')
                return false;
            QByteArrayView key;
            bool keyEscapes = false;
            if (!string(&key, &keyEscapes))
                return false;
            if (keyEscapes) { // a key written with escapes might still spell one of ours
                unsure = true;
                return false;
            }
            skipSpace();
            if (m_p == m_end || *m_p != ':')
                return false;
            ++m_p;
            skipSpace();
            if (m_p == m_end)
                return false;
            if (!member(depth, level, key))
                return false;
            const Next next = afterItem('}');
            if (next != Next::More)
                return next == Next::Closed;
        }
    }

    bool member(int depth, const Level *level, QByteArrayView key)
    {
        if (level && *level == Level::Top && key == QByteArrayView("choices")) {
            if (choicesSeen) {
                unsure = true;
                return false;
            }
            choicesSeen = true;
            if (*m_p == '[') {
                choicesIsArray = true;
                return array(depth + 1, level);
            }
            return value(depth);
        }
        if (level && *level == Level::Choice0 && key == QByteArrayView("delta")) {
            if (deltaSeen) {
                unsure = true;
                return false;
            }
            deltaSeen = true;
            if (*m_p == '{') {
                deltaIsObject = true;
                static constexpr Level delta = Level::Delta;
                return object(depth + 1, &delta);
            }
            return value(depth);
        }
        if (level && *level == Level::Delta && key == QByteArrayView("content")) {
            if (contentSeen) {
                unsure = true;
                return false;
            }
            contentSeen = true;
            if (*m_p == '"') {
                QByteArrayView raw;
                bool escapes = false;
                if (!string(&raw, &escapes))
                    return false;
                contentRaw = raw;
                contentHasEscapes = escapes;
                return true;
            }
            return value(depth);
        }
        return value(depth);
    }

    // The choices array (with `level` Top) or any other array.
    bool array(int depth, const Level *level)
    {
        if (depth > MaxDepth) {
            unsure = true;
            return false;
        }
        const bool isChoices = level && *level == Level::Top;
        ++m_p; // '['
        skipSpace();
        if (m_p < m_end && *m_p == ']') {
            ++m_p;
            return true;
        }
        for (int index = 0;; ++index) {
            skipSpace();
            if (m_p == m_end)
                return false;
            if (isChoices) {
                ++choiceCount;
                if (*m_p != '{')
                    choicesAllObjects = false;
            }
            if (isChoices && index == 0 && *m_p == '{') {
                static constexpr Level choice = Level::Choice0;
                if (!object(depth + 1, &choice))
                    return false;
            } else if (!value(depth)) {
                return false;
            }
            const Next next = afterItem(']');
            if (next != Next::More)
                return next == Next::Closed;
        }
    }

    bool topObject()
    {
        static constexpr Level top = Level::Top;
        return object(1, &top);
    }

    const char *m_p;
    const char *m_end;
};

// One run of UTF-8 between escapes. Qt's parser reads a string with escapes character by character, so a
// byte-order mark at the start of a run stays a character (QString::fromUtf8 would drop it).
QString runFromUtf8(const char *bytes, qsizetype size)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::ConvertInitialBom);
    return decoder(QByteArrayView(bytes, size));
}

// Decodes a JSON string's bytes; nothing when an escape is one Qt's parser should judge (lone surrogates).
std::optional<QString> decode(QByteArrayView raw, bool escapes)
{
    // A string without escapes Qt's parser decodes whole with QString::fromUtf8, leading mark dropped.
    if (!escapes)
        return QString::fromUtf8(raw);
    QString out;
    out.reserve(raw.size());
    const char *p = raw.data();
    const char *end = p + raw.size();
    const char *run = p;
    const auto flush = [&](const char *upTo) {
        if (upTo > run)
            out += runFromUtf8(run, upTo - run);
    };
    while (p < end) {
        if (*p != '\\') {
            ++p;
            continue;
        }
        flush(p);
        const char e = p[1];
        p += 2;
        static constexpr std::string_view Escaped = "\"\\/bfnrt";
        static constexpr std::string_view Meaning = "\"\\/\b\f\n\r\t";
        if (const size_t simple = Escaped.find(e); simple != std::string_view::npos) {
            out += QLatin1Char(Meaning[simple]);
        } else if (e == 'u') {
            const ushort unit = QByteArrayView(p, 4).toUShort(nullptr, 16);
            p += 4;
            if (QChar::isHighSurrogate(unit)) {
                if (end - p < 6 || p[0] != '\\' || p[1] != 'u')
                    return std::nullopt;
                const ushort low = QByteArrayView(p + 2, 4).toUShort(nullptr, 16);
                if (!QChar::isLowSurrogate(low))
                    return std::nullopt;
                out += QChar(unit);
                out += QChar(low);
                p += 6;
            } else if (QChar::isLowSurrogate(unit)) {
                return std::nullopt;
            } else {
                out += QChar(unit);
            }
        } else {
            return std::nullopt;
        }
        run = p;
    }
    flush(end);
    return out;
}

} // namespace

JsonDeltaScanner::Result JsonDeltaScanner::scan(QByteArrayView json)
{
    Scanner scanner(json);
    const bool valid = scanner.document();
    if (scanner.unsure)
        return {};
    if (!valid)
        return {}; // malformed events are rare: Qt's parser has the last word on them
    if (!scanner.choicesIsArray || scanner.choiceCount == 0 || !scanner.choicesAllObjects ||
        !scanner.deltaIsObject || !scanner.contentRaw)
        return {Outcome::NoContent, {}};
    const std::optional<QString> content = decode(*scanner.contentRaw, scanner.contentHasEscapes);
    if (!content)
        return {};
    return {Outcome::Content, *content};
}
