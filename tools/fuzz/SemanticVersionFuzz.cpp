#include "foundation/SemanticVersion.h"

#include <cstddef>
#include <cstdint>

// Versions and builds come from manifests, catalogues and Info.plist files alike. The input is
// split in two to compare one against the other.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype split = text.indexOf(u'\n');
    const QString installed = split < 0 ? text : text.left(split);
    const QString available = split < 0 ? text : text.mid(split + 1);
    const auto left = SemanticVersion::parse(installed);
    const auto right = SemanticVersion::parse(available);
    if (left && right) {
        // The ordering must be consistent both ways.
        const auto forward = *left <=> *right;
        const auto backward = *right <=> *left;
        if ((forward < 0) != (backward > 0) || (forward == 0) != (backward == 0))
            __builtin_trap();
    }
    isUpdate(installed, installed, available, available);
    parseDecimalInteger(text);
    return 0;
}
