#include "applications/ReleaseManifest.h"

#include "foundation/LaunchError.h"
#include "foundation/StrictJson.h"

using namespace Qt::StringLiterals;

namespace {

AvailableApplicationRelease decodeRelease(const JsonObject& release) {
    AvailableApplicationRelease decoded;
    decoded.version = release.requiredString("version");
    if (const auto build = release.optionalInteger("build"))
        decoded.build = QString::number(*build);
    if (const auto address = release.optionalString("downloadURL")) {
        const QUrl url(*address, QUrl::StrictMode);
        if (address->isEmpty() || !url.isValid())
            throw LaunchError::decoding(u"The release's downloadURL is not a URL."_s);
        decoded.downloadURL = url;
    }
    return decoded;
}

} // namespace

std::optional<AvailableApplicationRelease> decodeReleaseManifest(const QByteArray& document) {
    const JsonObject manifest = JsonObject::parse(document);
    // Both entries are decoded, so a malformed "latest" fails the document even beside a good
    // "direct".
    std::optional<AvailableApplicationRelease> direct;
    std::optional<AvailableApplicationRelease> latest;
    if (const auto entry = manifest.optionalObject("direct"))
        direct = decodeRelease(*entry);
    if (const auto entry = manifest.optionalObject("latest"))
        latest = decodeRelease(*entry);
    return direct ? direct : latest;
}
