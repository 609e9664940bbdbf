// The account snapshot file as read back from disk.
#include "foundation/LaunchAccountSnapshot.h"
#include "foundation/LaunchError.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray document(reinterpret_cast<const char*>(data), qsizetype(size));
    try {
        const LaunchAccountSnapshot snapshot = LaunchAccountSnapshot::decode(document).validated();
        if (!(LaunchAccountSnapshot::decode(snapshot.encoded()) == snapshot))
            __builtin_trap();
    } catch (const LaunchError&) {
    }
    return 0;
}
