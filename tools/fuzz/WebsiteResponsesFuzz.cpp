// Every body of the website account API: tokens, account, sign-out answer, pack manifest.
#include "account/WebsiteResponses.h"
#include "foundation/LaunchError.h"

#include <cstddef>
#include <cstdint>

namespace {

template <typename Decode>
void tryDecoding(Decode decode) {
    try {
        decode();
    } catch (const LaunchError&) {
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), qsizetype(size));
    tryDecoding([&] { WebsiteResponses::decodeTokenResponse(body); });
    tryDecoding([&] { WebsiteResponses::decodeAccountResponse(body); });
    tryDecoding([&] { WebsiteResponses::decodeSignOutResponse(body); });
    tryDecoding([&] { WebsiteResponses::decodeContentPackManifest(body); });
    return 0;
}
