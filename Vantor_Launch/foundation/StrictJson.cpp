#include "foundation/StrictJson.h"

#include "foundation/LaunchError.h"

#include <cmath>
#include <cstdlib>
#include <limits>

using namespace Qt::StringLiterals;
using nlohmann::json;

namespace {

// Marks an integer too large for 64 bits, kept as its digits instead of an approximate float.
constexpr std::uint8_t wideIntegerSubtype = 0x57;

bool isWideInteger(const json& value) {
    return value.is_binary() && value.get_binary().has_subtype() &&
           value.get_binary().subtype() == wideIntegerSubtype;
}

std::string wideIntegerDigits(const json& value) {
    const auto& digits = value.get_binary();
    return std::string(digits.begin(), digits.end());
}

// Builds the document as nlohmann's own builder does, with two differences: it refuses to open a
// container deeper than the limit, so that a hostile document cannot make the build (or later
// walks) run out of stack, and it keeps the digits of integers beyond 64 bits, which a version
// label must keep as written.
class StrictBuilder {
public:
    explicit StrictBuilder(json& root)
        : m_builder(root, false) {}

    bool tooDeep() const { return m_tooDeep; }

    bool null() { return m_builder.null(); }
    bool boolean(bool value) { return m_builder.boolean(value); }
    bool number_integer(json::number_integer_t value) { return m_builder.number_integer(value); }
    bool number_unsigned(json::number_unsigned_t value) { return m_builder.number_unsigned(value); }
    bool number_float(json::number_float_t value, const json::string_t& text) {
        if (text.find_first_of(".eE") != std::string::npos)
            return m_builder.number_float(value, text);
        json::binary_t digits(std::vector<std::uint8_t>(text.begin(), text.end()),
                              wideIntegerSubtype);
        return m_builder.binary(digits);
    }
    bool string(json::string_t& value) { return m_builder.string(value); }
    bool binary(json::binary_t& value) { return m_builder.binary(value); }
    bool start_object(std::size_t size) { return enter() && m_builder.start_object(size); }
    bool key(json::string_t& value) { return m_builder.key(value); }
    bool end_object() {
        --m_depth;
        return m_builder.end_object();
    }
    bool start_array(std::size_t size) { return enter() && m_builder.start_array(size); }
    bool end_array() {
        --m_depth;
        return m_builder.end_array();
    }
    bool parse_error(std::size_t position, const std::string& token,
                     const nlohmann::detail::exception& error) {
        return m_builder.parse_error(position, token, error);
    }

private:
    bool enter() {
        if (++m_depth <= JsonObject::maximumDepth)
            return true;
        m_tooDeep = true;
        return false;
    }

    nlohmann::detail::json_sax_dom_parser<json> m_builder;
    int m_depth = 0;
    bool m_tooDeep = false;
};

std::shared_ptr<const json> parseDocument(const QByteArray& document) {
    auto value = std::make_shared<json>();
    StrictBuilder builder(*value);
    const bool parsed = json::sax_parse(document.constBegin(), document.constEnd(), &builder,
                                        json::input_format_t::json, true);
    if (builder.tooDeep())
        throw LaunchError::decoding(
            u"The document is nested deeper than %1 levels."_s.arg(JsonObject::maximumDepth));
    if (!parsed)
        throw LaunchError::decoding(u"The document is not valid JSON."_s);
    return value;
}

QString toQString(const json& value) {
    const auto& text = value.get_ref<const std::string&>();
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

std::optional<qint64> exactInteger(const json& value) {
    if (value.is_number_integer() && !value.is_number_unsigned())
        return value.get<qint64>();
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        if (number > std::uint64_t(std::numeric_limits<qint64>::max()))
            return std::nullopt;
        return qint64(number);
    }
    if (value.is_number_float()) {
        // An integral float (2.0) is still the integer 2; 2.5 is not an integer.
        const double number = value.get<double>();
        if (std::trunc(number) != number || number < -9.2233720368547758e18 ||
            number >= 9.2233720368547758e18)
            return std::nullopt;
        return qint64(number);
    }
    return std::nullopt;
}

QString flexibleVersionText(const json& value) {
    if (value.is_string())
        return toQString(value);
    if (isWideInteger(value))
        return QString::fromStdString(wideIntegerDigits(value));
    if (value.is_number_float())
        return QString::fromStdString(value.dump()); // shortest text that reads back: 2.0 stays 2.0
    // Unsigned first: a number above the signed range must not wrap into a negative one.
    if (value.is_number_unsigned())
        return QString::number(value.get<std::uint64_t>());
    return QString::number(value.get<qint64>());
}

} // namespace

JsonObject::JsonObject(std::shared_ptr<const json> document, const json* value, QString path)
    : m_document(std::move(document))
    , m_value(value)
    , m_path(std::move(path)) {}

JsonObject JsonObject::parse(const QByteArray& document) {
    auto value = parseDocument(document);
    if (!value->is_object())
        throw LaunchError::decoding(u"The top level is not a JSON object."_s);
    const json* root = value.get();
    return JsonObject(std::move(value), root, u"$"_s);
}

std::vector<JsonObject> JsonObject::parseArray(const QByteArray& document) {
    const auto value = parseDocument(document);
    if (!value->is_array())
        throw LaunchError::decoding(u"The top level is not a JSON array."_s);
    std::vector<JsonObject> objects;
    objects.reserve(value->size());
    for (std::size_t i = 0; i < value->size(); ++i) {
        const json& element = (*value)[i];
        if (!element.is_object())
            throw LaunchError::decoding(u"Element %1 is not an object."_s.arg(i));
        objects.push_back(JsonObject(value, &element, u"$[%1]"_s.arg(i)));
    }
    return objects;
}

const json* JsonObject::find(const char* key) const {
    const auto it = m_value->find(key);
    if (it == m_value->end() || it->is_null())
        return nullptr;
    return &*it;
}

const json& JsonObject::require(const char* key) const {
    const json* value = find(key);
    if (!value)
        fail(key, "a value");
    return *value;
}

void JsonObject::fail(const char* key, const char* expectation) const {
    throw LaunchError::decoding(
        u"Expected %1 at %2.%3."_s.arg(QLatin1String(expectation), m_path, QLatin1String(key)));
}

bool JsonObject::contains(const char* key) const {
    return find(key) != nullptr;
}

QString JsonObject::requiredString(const char* key) const {
    const json& value = require(key);
    if (!value.is_string())
        fail(key, "a string");
    return toQString(value);
}

std::optional<QString> JsonObject::optionalString(const char* key) const {
    if (!find(key))
        return std::nullopt;
    return requiredString(key);
}

qint64 JsonObject::requiredInteger(const char* key) const {
    const auto number = exactInteger(require(key));
    if (!number)
        fail(key, "an integer");
    return *number;
}

std::optional<qint64> JsonObject::optionalInteger(const char* key) const {
    if (!find(key))
        return std::nullopt;
    return requiredInteger(key);
}

double JsonObject::requiredNumber(const char* key) const {
    const json& value = require(key);
    if (isWideInteger(value))
        return std::strtod(wideIntegerDigits(value).c_str(), nullptr);
    if (!value.is_number())
        fail(key, "a number");
    return value.get<double>();
}

std::optional<double> JsonObject::optionalNumber(const char* key) const {
    if (!find(key))
        return std::nullopt;
    return requiredNumber(key);
}

std::optional<bool> JsonObject::optionalBool(const char* key) const {
    if (!find(key))
        return std::nullopt;
    return requiredBool(key);
}

bool JsonObject::requiredBool(const char* key) const {
    const json& value = require(key);
    if (!value.is_boolean())
        fail(key, "a boolean");
    return value.get<bool>();
}

JsonObject JsonObject::requiredObject(const char* key) const {
    const json& value = require(key);
    if (!value.is_object())
        fail(key, "an object");
    return JsonObject(m_document, &value, m_path + u'.' + QLatin1String(key));
}

std::optional<JsonObject> JsonObject::optionalObject(const char* key) const {
    if (!find(key))
        return std::nullopt;
    return requiredObject(key);
}

std::vector<JsonObject> JsonObject::requiredObjects(const char* key) const {
    const json& value = require(key);
    if (!value.is_array())
        fail(key, "an array");
    std::vector<JsonObject> objects;
    objects.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (!value[i].is_object())
            fail(key, "an array of objects");
        objects.push_back(JsonObject(m_document, &value[i],
                                     u"%1.%2[%3]"_s.arg(m_path, QLatin1String(key)).arg(i)));
    }
    return objects;
}

std::optional<QStringList> JsonObject::optionalStrings(const char* key) const {
    if (!find(key))
        return std::nullopt;
    return requiredStrings(key);
}

QStringList JsonObject::requiredStrings(const char* key) const {
    const json& value = require(key);
    if (!value.is_array())
        fail(key, "an array of strings");
    QStringList strings;
    for (const json& element : value) {
        if (!element.is_string())
            fail(key, "an array of strings");
        strings.append(toQString(element));
    }
    return strings;
}

QString JsonObject::requiredFlexibleVersion(const char* key) const {
    const json& value = require(key);
    if (!value.is_string() && !value.is_number() && !isWideInteger(value))
        fail(key, "a string or numeric version");
    return flexibleVersionText(value);
}

std::optional<QString> JsonObject::optionalFlexibleVersion(const char* key) const {
    if (!find(key))
        return std::nullopt;
    return requiredFlexibleVersion(key);
}
