#include "StreamEvent.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

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

namespace od = simdjson::ondemand;

// Longer events go to Qt's parser: the fast reader's buffers grow to the longest line it has read and stay.
constexpr size_t MaxFastBytes = 1024 * 1024;
// Deeper documents go to Qt's parser, which has its own limit.
constexpr int MaxFastDepth = 64;

// What the fast reader found. `Unsure` hands the line to Qt's parser, which decides: the fast reader only
// answers where it is certain to decide as Qt does.
enum class Outcome { Content, NoContent, Unsure };

struct Found {
    Outcome outcome = Outcome::NoContent;
    std::string_view content;
    const char *raw = nullptr; // where the content's string starts in the document
};

constexpr Found Unsure{Outcome::Unsure, {}};

std::string_view bom("\xEF\xBB\xBF", 3);

// Qt reads a string without escapes as one run of UTF-8, which drops a leading byte-order mark, as
// QString::fromUtf8 does; a string with escapes is read character by character and keeps every one. `text`
// is the unescaped string, `raw` its bytes in the document: when there are escapes, the first lies within
// the unescaped length.
QString toQString(std::string_view text, const char *raw)
{
    const auto decode = [](std::string_view utf8) {
        return QString::fromUtf8(utf8.data(), qsizetype(utf8.size()));
    };
    if (text.substr(0, 3) != bom || !std::memchr(raw, '\\', text.size()))
        return decode(text);
    QString marks;
    while (text.substr(0, 3) == bom) {
        marks += QChar(0xFEFF);
        text.remove_prefix(3);
    }
    return marks + decode(text);
}

// Where the string that begins after `raw` ends, or nothing when it holds an escape: only escapes need
// the unescaping pass (the bytes themselves were checked as UTF-8 with the whole document).
std::optional<std::string_view> plainString(const char *raw)
{
    const char *quote = static_cast<const char *>(std::strchr(raw, '"'));
    if (!quote || std::memchr(raw, '\\', size_t(quote - raw)))
        return std::nullopt;
    return std::string_view(raw, size_t(quote - raw));
}

// A field's key as Qt compares it: unescaped.
bool keyOf(od::field &field, std::string_view &key)
{
    if (const std::optional<std::string_view> plain = plainString(field.key().raw())) {
        key = *plain;
        return true;
    }
    return !field.unescaped_key().get(key);
}

// Reads a value as Qt's parser would have to, so that an error anywhere is seen; true when Qt accepts it
// for certain.
bool check(od::value value, int depth);

bool checkObject(od::object object, int depth)
{
    for (auto entry : object) {
        od::field field;
        if (std::move(entry).get(field))
            return false;
        std::string_view key;
        od::value value = field.value();
        if (!keyOf(field, key) || !check(value, depth))
            return false;
    }
    return true;
}

bool checkArray(od::array array, int depth)
{
    for (auto element : array) {
        od::value value;
        if (element.get(value) || !check(value, depth))
            return false;
    }
    return true;
}

bool checkNumber(od::value value)
{
    const std::string_view token = value.raw_json_token();
    double number = 0;
    if (value.get_double().get(number))
        return false;
    const double magnitude = std::fabs(number);
    // Qt refuses what does not fit a double, also what rounds to zero; both readers round correctly, but
    // near the edges the decision is left to Qt.
    if (!std::isfinite(number) || magnitude > 1e300 || (magnitude != 0 && magnitude < 1e-300))
        return false;
    if (number == 0)
        for (const char c : token) {
            if (c == 'e' || c == 'E')
                break;
            if (c >= '1' && c <= '9')
                return false;
        }
    return true;
}

bool check(od::value value, int depth)
{
    if (depth > MaxFastDepth)
        return false;
    od::json_type type;
    if (value.type().get(type))
        return false;
    switch (type) {
    case od::json_type::object: {
        od::object object;
        return !value.get_object().get(object) && checkObject(object, depth + 1);
    }
    case od::json_type::array: {
        od::array array;
        return !value.get_array().get(array) && checkArray(array, depth + 1);
    }
    case od::json_type::string: {
        // A string without escapes needs no more reading: the reader passes over it.
        if (plainString(value.raw_json_token().data() + 1))
            return true;
        std::string_view text;
        return !value.get_string().get(text);
    }
    case od::json_type::number:
        return checkNumber(value);
    case od::json_type::boolean: {
        bool flag;
        return !value.get_bool().get(flag);
    }
    case od::json_type::null: {
        bool isNull = false;
        return !value.is_null().get(isNull) && isNull;
    }
    }
    return false;
}

// Qt keeps the last of duplicate keys, so every field is read and a later one replaces an earlier finding.
Found readDelta(od::value value, int depth)
{
    od::json_type type;
    if (value.type().get(type))
        return Unsure;
    if (type != od::json_type::object)
        return check(value, depth) ? Found{} : Unsure;
    od::object delta;
    if (value.get_object().get(delta))
        return Unsure;
    Found found;
    for (auto entry : delta) {
        od::field field;
        if (std::move(entry).get(field))
            return Unsure;
        std::string_view key;
        od::value member = field.value();
        if (!keyOf(field, key))
            return Unsure;
        if (key == "content") {
            od::json_type memberType;
            if (member.type().get(memberType))
                return Unsure;
            if (memberType == od::json_type::string) {
                const char *raw = member.raw_json_token().data() + 1; // after the opening quote
                std::string_view text;
                if (member.get_string().get(text))
                    return Unsure;
                found = {Outcome::Content, text, raw};
                continue;
            }
            found = {};
        }
        if (!check(member, depth + 1))
            return Unsure;
    }
    return found;
}

Found readChoice(od::object choice, int depth)
{
    Found found;
    for (auto entry : choice) {
        od::field field;
        if (std::move(entry).get(field))
            return Unsure;
        std::string_view key;
        od::value member = field.value();
        if (!keyOf(field, key))
            return Unsure;
        if (key == "delta") {
            found = readDelta(member, depth + 1);
            if (found.outcome == Outcome::Unsure)
                return Unsure;
        } else if (!check(member, depth + 1)) {
            return Unsure;
        }
    }
    return found;
}

// The first choice's delta counts, and only when every choice is an object.
Found readChoices(od::value value, int depth)
{
    od::json_type type;
    if (value.type().get(type))
        return Unsure;
    if (type != od::json_type::array)
        return check(value, depth) ? Found{} : Unsure;
    od::array choices;
    if (value.get_array().get(choices))
        return Unsure;
    Found found;
    bool first = true;
    bool allObjects = true;
    for (auto element : choices) {
        od::value choice;
        if (element.get(choice))
            return Unsure;
        od::json_type choiceType;
        if (choice.type().get(choiceType))
            return Unsure;
        if (choiceType != od::json_type::object) {
            allObjects = false;
            if (!check(choice, depth + 1))
                return Unsure;
        } else if (first) {
            od::object object;
            if (choice.get_object().get(object))
                return Unsure;
            found = readChoice(object, depth + 2);
            if (found.outcome == Outcome::Unsure)
                return Unsure;
        } else if (!check(choice, depth + 1)) {
            return Unsure;
        }
        first = false;
    }
    return allObjects ? found : Found{};
}

Found readEvent(od::document &document)
{
    od::json_type type;
    if (document.type().get(type))
        return Unsure;
    if (type != od::json_type::object)
        return {}; // valid or not, no event
    od::object event;
    if (document.get_object().get(event))
        return Unsure;
    Found found;
    for (auto entry : event) {
        od::field field;
        if (std::move(entry).get(field))
            return Unsure;
        std::string_view key;
        od::value member = field.value();
        if (!keyOf(field, key))
            return Unsure;
        if (key == "choices") {
            found = readChoices(member, 1);
            if (found.outcome == Outcome::Unsure)
                return Unsure;
        } else if (!check(member, 1)) {
            return Unsure;
        }
    }
    // Anything after the document makes it invalid.
    return document.current_location().error() == simdjson::OUT_OF_BOUNDS ? found : Unsure;
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

// The reader and its padded copy of the line are kept per thread, so a read allocates nothing once warm.
struct FastReader {
    od::parser parser;
    // On-Demand checks only the parts it walks, and its walk can step over a misplaced ':' or ','; the
    // DOM parser checks the whole grammar first, so only well-formed JSON is read on demand.
    simdjson::dom::parser grammar;
    std::vector<char> buffer;

    std::optional<StreamEvent> read(QByteArrayView data)
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
        if (grammar.parse(reinterpret_cast<const uint8_t *>(buffer.data()), size, false).error())
            return std::nullopt;
        od::document document;
        if (parser.iterate(buffer.data(), size, buffer.size()).get(document))
            return std::nullopt;
        const Found found = readEvent(document);
        switch (found.outcome) {
        case Outcome::Content:
            return StreamEvent{StreamEvent::Kind::Piece, toQString(found.content, found.raw)};
        case Outcome::NoContent:
            return StreamEvent{};
        case Outcome::Unsure:
            break;
        }
        return std::nullopt;
    }
};

} // namespace

StreamEvent StreamEvent::parse(QByteArrayView line)
{
    const std::optional<QByteArrayView> data = dataOf(line);
    if (!data)
        return {};
    if (*data == DoneMarker)
        return {Kind::Done, {}};
    thread_local FastReader reader;
    if (std::optional<StreamEvent> event = reader.read(*data))
        return std::move(*event);
    return parseWithDocument(line);
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
