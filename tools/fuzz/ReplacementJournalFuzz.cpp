// The journal of a replacement lies beside the installed bundle, where anyone who can write there
// can change it; the next start reads it before it moves anything. Any bytes must parse or be
// refused, and what parses must name nothing outside its folder and survive a round trip.
#include "platform/linux/RenameExchangeReplacement.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto journal = RenameExchangeReplacement::Journal::parse(bytes);
    if (!journal)
        return 0;
    for (const QByteArray& name : {journal->bundleName, journal->backupName}) {
        if (name.contains('/') || name == "." || name == "..")
            std::abort();
    }
    if (RenameExchangeReplacement::Journal::parse(journal->serialize()) != journal)
        std::abort();
    return 0;
}
