#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <vector>

// Reads one JSON object strictly: a required key that is missing, or any present key of the wrong
// JSON type, fails the whole document with a decoding LaunchError. null counts as absent for
// optional keys, unknown keys are ignored, and integers and floating-point numbers stay apart.
// A document nested deeper than maximumDepth is refused before it is built, and nested objects
// are read in place, never copied.
class JsonObject {
public:
    // Far more than any document of the website needs; far less than what would exhaust a stack.
    static constexpr int maximumDepth = 64;

    // Parses a whole document whose top level must be an object.
    static JsonObject parse(const QByteArray& document);
    // Parses a whole document whose top level must be an array of objects.
    static std::vector<JsonObject> parseArray(const QByteArray& document);

    QString requiredString(const char* key) const;
    std::optional<QString> optionalString(const char* key) const;
    qint64 requiredInteger(const char* key) const;
    std::optional<qint64> optionalInteger(const char* key) const;
    double requiredNumber(const char* key) const;
    std::optional<double> optionalNumber(const char* key) const;
    bool requiredBool(const char* key) const;
    std::optional<bool> optionalBool(const char* key) const;
    JsonObject requiredObject(const char* key) const;
    std::optional<JsonObject> optionalObject(const char* key) const;
    std::vector<JsonObject> requiredObjects(const char* key) const;
    QStringList requiredStrings(const char* key) const;
    std::optional<QStringList> optionalStrings(const char* key) const;
    // A version that the website writes as a string or a number: 3 stays "3", 2.0 stays "2.0",
    // and an integer of any length keeps its digits.
    QString requiredFlexibleVersion(const char* key) const;
    std::optional<QString> optionalFlexibleVersion(const char* key) const;

    bool contains(const char* key) const;
    const nlohmann::json& raw() const { return *m_value; }

private:
    JsonObject(std::shared_ptr<const nlohmann::json> document, const nlohmann::json* value,
               QString path);
    const nlohmann::json* find(const char* key) const; // nullptr when absent or null
    const nlohmann::json& require(const char* key) const;
    [[noreturn]] void fail(const char* key, const char* expectation) const;

    std::shared_ptr<const nlohmann::json> m_document; // keeps m_value alive
    const nlohmann::json* m_value;
    QString m_path;
};
