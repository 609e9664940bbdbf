// The session as read back from the secret store.
#include "account/LaunchTokens.h"
#include "foundation/LaunchError.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray document(reinterpret_cast<const char*>(data), qsizetype(size));
    try {
        const LaunchTokens tokens = LaunchTokens::decode(document);
        // What decodes must survive its own round trip.
        if (!(LaunchTokens::decode(tokens.encoded()) == tokens))
            __builtin_trap();
    } catch (const LaunchError&) {
    }
    return 0;
}
