#include "StreamEvent.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringDecoder>

#include <simdjson.h>

#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace {

constexpr QByteArrayView Prefix("data: ");
constexpr QByteArrayView DoneMarker("[DONE]");

// The part of the line after "data: ", or nothing when the line is no data line.
std::optional<QByteArrayView> dataOf(QByteArrayView line)
{
    if (!line.startsWith(Prefix))
        return std::nullopt;
    return line.sliced(Prefix.size());
}

namespace dom = simdjson::dom;

// Longer events go to Qt's parser: the fast reader's buffers grow to the longest line it has read and stay.
constexpr size_t MaxFastBytes = 1024 * 1024;
// Deeper documents go to Qt's parser, which has its own limit.
constexpr size_t MaxFastDepth = 64;

// What the fast reader found. `Unsure` hands the line to Qt's parser, which decides: the fast reader only
// answers where it is certain to decide as Qt does.
enum class Outcome { Content, NoContent, Unsure };

struct Found {
    Outcome outcome = Outcome::NoContent;
    std::string_view content;
};

constexpr Found Unsure{Outcome::Unsure, {}};

// Qt drops a byte-order mark that starts a string without escapes and keeps one written as an escape; the
// parsed string no longer tells which, so such strings are left to Qt.
bool startsWithMark(std::string_view text)
{
    return text.substr(0, 3) == std::string_view("\xEF\xBB\xBF", 3);
}

// Qt refuses a number that does not fit a double, also one that rounds to zero; both readers round
// correctly, but near the edges, and for every zero written as a fraction, the decision is left to Qt.
bool numberQtAccepts(double number)
{
    const double magnitude = std::fabs(number);
    return std::isfinite(number) && magnitude <= 1e300 && magnitude >= 1e-300;
}

// The grammar, UTF-8 and escapes were checked by the parser; what is left is where Qt is stricter.
bool qtAccepts(dom::element value)
{
    switch (value.type()) {
    case dom::element_type::OBJECT:
        for (const dom::key_value_pair field : dom::object(value))
            if (startsWithMark(field.key) || !qtAccepts(field.value))
                return false;
        return true;
    case dom::element_type::ARRAY:
        for (const dom::element element : dom::array(value))
            if (!qtAccepts(element))
                return false;
        return true;
    case dom::element_type::DOUBLE:
        return numberQtAccepts(double(value));
    default:
        return true;
    }
}

// Qt keeps the last of duplicate keys.
std::optional<dom::element> lastField(dom::element object, std::string_view key)
{
    std::optional<dom::element> found;
    for (const dom::key_value_pair field : dom::object(object))
        if (field.key == key)
            found = field.value;
    return found;
}

// The first choice's delta counts, and only when every choice is an object.
Found readEvent(dom::element document)
{
    if (!qtAccepts(document))
        return Unsure;
    if (!document.is_object())
        return {}; // valid, but no event
    const std::optional<dom::element> choices = lastField(document, "choices");
    if (!choices || !choices->is_array())
        return {};
    const dom::array list(*choices);
    if (list.size() == 0)
        return {};
    for (const dom::element choice : list)
        if (!choice.is_object())
            return {};
    const std::optional<dom::element> delta = lastField(list.at(0).value_unsafe(), "delta");
    if (!delta || !delta->is_object())
        return {};
    const std::optional<dom::element> content = lastField(*delta, "content");
    if (!content || !content->is_string())
        return {};
    const std::string_view text(*content);
    if (startsWithMark(text))
        return Unsure;
    return {Outcome::Content, text};
}

// Whether any byte is below 0x20, eight bytes at a time: a byte below 0x20 borrows into its top bit when
// 0x20 is subtracted, which no byte of 0x80 or more can pass the mask with.
bool hasControlCharacter(QByteArrayView data)
{
    constexpr quint64 Ones = 0x0101010101010101ULL;
    constexpr quint64 Tops = 0x8080808080808080ULL;
    const char *p = data.data();
    qsizetype left = data.size();
    for (; left >= 8; p += 8, left -= 8) {
        quint64 word;
        std::memcpy(&word, p, 8);
        if ((word - Ones * 0x20) & ~word & Tops)
            return true;
    }
    for (; left > 0; ++p, --left)
        if (static_cast<unsigned char>(*p) < 0x20)
            return true;
    return false;
}

// The parser and its padded copy of the line are kept per thread, so a read allocates nothing once warm.
struct FastReader {
    dom::parser parser{MaxFastBytes};
    std::vector<char> buffer;

    // A start small enough for every thread; the parser grows to the longest line it is given.
    FastReader()
    {
        if (parser.allocate(4096, MaxFastDepth) != simdjson::SUCCESS)
            qWarning(
                "⚠️ Stream: the fast event reader could not allocate; Qt's parser reads every event");
    }

    std::optional<StreamEvent::Kind> read(QByteArrayView data, QString &text)
    {
        const auto size = size_t(data.size());
        if (size > MaxFastBytes)
            return std::nullopt;
        // Control characters are rare and Qt's rules for them are its own: such lines go to Qt.
        if (hasControlCharacter(data))
            return std::nullopt;
        if (buffer.size() < size + simdjson::SIMDJSON_PADDING)
            buffer.resize(size + simdjson::SIMDJSON_PADDING);
        if (size > 0) // an empty line may have no storage at all, which memcpy must not be given
            std::memcpy(buffer.data(), data.data(), size);
        std::memset(buffer.data() + size, 0, simdjson::SIMDJSON_PADDING);
        dom::element document;
        if (parser.parse(reinterpret_cast<const uint8_t *>(buffer.data()), size, false).get(document))
            return std::nullopt;
        const Found found = readEvent(document);
        switch (found.outcome) {
        case Outcome::Content:
            appendUtf8(text, found.content);
            return StreamEvent::Kind::Piece;
        case Outcome::NoContent:
            return StreamEvent::Kind::Ignore;
        case Outcome::Unsure:
            break;
        }
        return std::nullopt;
    }

private:
    // The parser checked the text's UTF-8, so it is decoded straight behind what `text` holds.
    void appendUtf8(QString &text, std::string_view utf8)
    {
        const qsizetype start = text.size();
        text.resize(start + qsizetype(utf8.size())); // never fewer UTF-8 bytes than UTF-16 units
        const QChar *end = decoder.appendToBuffer(text.data() + start, QByteArrayView(utf8));
        text.resize(end - text.constData());
    }

    // Keeps a byte-order mark where it stands, as QString::fromUtf8 does.
    QStringDecoder decoder{QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom};
};

} // namespace

StreamEvent StreamEvent::parse(QByteArrayView line)
{
    StreamEvent event;
    event.kind = read(line, event.content);
    return event;
}

StreamEvent::Kind StreamEvent::read(QByteArrayView line, QString &text)
{
    const std::optional<QByteArrayView> data = dataOf(line);
    if (!data)
        return Kind::Ignore;
    if (*data == DoneMarker)
        return Kind::Done;
    thread_local FastReader reader;
    if (const std::optional<Kind> kind = reader.read(*data, text))
        return *kind;
    const StreamEvent event = parseWithDocument(line);
    text += event.content;
    return event.kind;
}

StreamEvent StreamEvent::parseWithDocument(QByteArrayView line)
{
    const std::optional<QByteArrayView> data = dataOf(line);
    if (!data)
        return {};
    if (*data == DoneMarker)
        return {Kind::Done, {}};

    // The line is read as text first, so bytes that are not UTF-8 become replacement characters.
    const QJsonDocument document = QJsonDocument::fromJson(QString::fromUtf8(*data).toUtf8());
    if (!document.isObject())
        return {};
    const QJsonValue choicesValue = document.object().value(QLatin1String("choices"));
    if (!choicesValue.isArray())
        return {};
    const QJsonArray choices = choicesValue.toArray();
    if (choices.isEmpty())
        return {};
    for (const QJsonValue &choice : choices)
        if (!choice.isObject())
            return {};
    const QJsonValue delta = choices.first().toObject().value(QLatin1String("delta"));
    if (!delta.isObject())
        return {};
    const QJsonValue content = delta.toObject().value(QLatin1String("content"));
    if (!content.isString())
        return {};
    return {Kind::Piece, content.toString()};
}
