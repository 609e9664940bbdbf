#include "content_packs/InstalledAsset.h"
#include "foundation/LaunchError.h"

#include <cstddef>
#include <cstdint>

// Any bytes as "catalog.json", the content store's manifest: a decoding error is the only
// acceptable failure.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        InstalledAsset::decodeCatalog(
            QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    } catch (const LaunchError&) {
    }
    return 0;
}
