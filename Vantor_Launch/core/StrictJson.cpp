#include "core/StrictJson.h"

#include "core/LaunchError.h"

#include <cmath>
#include <limits>

using namespace Qt::StringLiterals;
using nlohmann::json;

namespace {

json parseDocument(const QByteArray& document) {
    json value = json::parse(document.constBegin(), document.constEnd(), nullptr, false);
    if (value.is_discarded())
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
    if (value.is_number_float()) {
        const std::string text = value.dump();
        return QString::fromStdString(text);
    }
    return QString::number(value.is_number_unsigned() ? qint64(value.get<std::uint64_t>())
                                                      : value.get<qint64>());
}

} // namespace

JsonObject::JsonObject(json value, QString path)
    : m_value(std::move(value))
    , m_path(std::move(path)) {}

JsonObject JsonObject::parse(const QByteArray& document) {
    json value = parseDocument(document);
    if (!value.is_object())
        throw LaunchError::decoding(u"The top level is not a JSON object."_s);
    return JsonObject(std::move(value), u"$"_s);
}

std::vector<JsonObject> JsonObject::parseArray(const QByteArray& document) {
    json value = parseDocument(document);
    if (!value.is_array())
        throw LaunchError::decoding(u"The top level is not a JSON array."_s);
    std::vector<JsonObject> objects;
    objects.reserve(value.size());
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (!value[i].is_object())
            throw LaunchError::decoding(u"Element %1 is not an object."_s.arg(i));
        objects.push_back(JsonObject(std::move(value[i]), u"$[%1]"_s.arg(i)));
    }
    return objects;
}

const json* JsonObject::find(const char* key) const {
    const auto it = m_value.find(key);
    if (it == m_value.end() || it->is_null())
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
    const json* value = find(key);
    if (!value)
        return std::nullopt;
    if (!value->is_boolean())
        fail(key, "a boolean");
    return value->get<bool>();
}

JsonObject JsonObject::requiredObject(const char* key) const {
    const json& value = require(key);
    if (!value.is_object())
        fail(key, "an object");
    return JsonObject(value, m_path + u'.' + QLatin1String(key));
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
        objects.push_back(
            JsonObject(value[i], u"%1.%2[%3]"_s.arg(m_path, QLatin1String(key)).arg(i)));
    }
    return objects;
}

std::optional<QStringList> JsonObject::optionalStrings(const char* key) const {
    const json* value = find(key);
    if (!value)
        return std::nullopt;
    if (!value->is_array())
        fail(key, "an array of strings");
    QStringList strings;
    for (const json& element : *value) {
        if (!element.is_string())
            fail(key, "an array of strings");
        strings.append(toQString(element));
    }
    return strings;
}

QString JsonObject::requiredFlexibleVersion(const char* key) const {
    const json& value = require(key);
    if (!value.is_string() && !value.is_number())
        fail(key, "a version string or number");
    return flexibleVersionText(value);
}

std::optional<QString> JsonObject::optionalFlexibleVersion(const char* key) const {
    if (!find(key))
        return std::nullopt;
    return requiredFlexibleVersion(key);
}
