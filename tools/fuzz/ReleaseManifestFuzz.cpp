#include "applications/ReleaseManifest.h"
#include "foundation/LaunchError.h"

#include <cstddef>
#include <cstdint>

// The release manifest as the website (or whoever answers in its place) sends it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray document(reinterpret_cast<const char*>(data), qsizetype(size));
    try {
        decodeReleaseManifest(document);
    } catch (const LaunchError&) {
        // Refusing a document is the expected outcome for most inputs.
    }
    return 0;
}
