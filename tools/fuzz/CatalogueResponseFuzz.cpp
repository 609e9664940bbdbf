#include "content_packs/CatalogueResponse.h"
#include "foundation/LaunchError.h"

#include <cstddef>
#include <cstdint>

// Any bytes as the public Content Pack catalogue: a decoding error is the only acceptable failure.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        decodeCatalogueResponse(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)));
    } catch (const LaunchError&) {
    }
    return 0;
}
