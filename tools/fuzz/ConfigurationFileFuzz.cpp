#include "foundation/LaunchConfiguration.h"
#include "foundation/LaunchError.h"

#include <cstddef>
#include <cstdint>

// The development configuration file given with --config.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray document(reinterpret_cast<const char*>(data), qsizetype(size));
    try {
        const LaunchConfiguration configuration =
            LaunchConfiguration::fromDocument(JsonObject::parse(document));
        configuration.integrationStatus();
    } catch (const LaunchError&) {
    }
    return 0;
}
