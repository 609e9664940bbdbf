#include "foundation/LaunchError.h"
#include "foundation/StrictJson.h"

#include <cstddef>
#include <cstdint>

namespace {

// Reads every key with every accessor, as the decoders of the launcher might, down the tree.
void readEverything(const JsonObject& object, int depth) {
    for (const auto& [key, value] : object.raw().items()) {
        const std::string name = key;
        const char* k = name.c_str();
        const auto attempt = [](auto read) {
            try {
                read();
            } catch (const LaunchError&) {
            }
        };
        attempt([&] { object.optionalString(k); });
        attempt([&] { object.optionalInteger(k); });
        attempt([&] { object.optionalNumber(k); });
        attempt([&] { object.optionalBool(k); });
        attempt([&] { object.optionalStrings(k); });
        attempt([&] { object.optionalFlexibleVersion(k); });
        attempt([&] {
            if (const auto child = object.optionalObject(k))
                readEverything(*child, depth + 1);
        });
        attempt([&] {
            for (const JsonObject& element : object.requiredObjects(k))
                readEverything(element, depth + 1);
        });
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray document(reinterpret_cast<const char*>(data), qsizetype(size));
    try {
        readEverything(JsonObject::parse(document), 0);
    } catch (const LaunchError&) {
    }
    try {
        for (const JsonObject& element : JsonObject::parseArray(document))
            readEverything(element, 0);
    } catch (const LaunchError&) {
    }
    return 0;
}
