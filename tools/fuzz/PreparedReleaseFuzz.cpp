// The record of a prepared release lies beside the installed bundle, where anyone who can write
// there can change it; the updater reads it before it trusts the bundle it names. Any bytes must
// parse or be refused, and what parses must name nothing outside its folder and survive a round
// trip.
#include "applications/PreparedReleaseRecord.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto record = PreparedReleaseRecord::parse(bytes);
    if (!record)
        return 0;
    if (record->bundleName.contains(u'/') || record->bundleName == u"." ||
        record->bundleName == u".." || !record->release.downloadURL)
        std::abort();
    if (PreparedReleaseRecord::parse(record->serialize()) != record)
        std::abort();
    return 0;
}
