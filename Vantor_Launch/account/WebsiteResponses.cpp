#include "account/WebsiteResponses.h"

#include "foundation/LaunchError.h"
#include "foundation/StrictJson.h"

using namespace Qt::StringLiterals;

namespace WebsiteResponses {

namespace {

// Session lifetimes beyond a century are not sessions; refusing them keeps the expiry a date.
constexpr qint64 longestLifetimeSeconds = 100LL * 366 * 24 * 3600;

std::optional<QUrl> optionalURL(const JsonObject& object, const char* key) {
    const auto text = object.optionalString(key);
    if (!text)
        return std::nullopt;
    const QUrl url(*text, QUrl::StrictMode);
    if (text->isEmpty() || !url.isValid() || url.isRelative())
        throw LaunchError::decoding(u"The manifest's "_s + QLatin1String(key) +
                                    u" is not a URL."_s);
    return url;
}

LaunchContentPackManifest::Asset decodeAsset(const JsonObject& object) {
    LaunchContentPackManifest::Asset asset;
    asset.id = object.requiredString("id");
    asset.name = object.requiredString("name");
    asset.category = object.requiredString("category");
    asset.version = object.requiredInteger("version");
    asset.tags = object.optionalStrings("tags");
    asset.contentPackID = object.optionalString("contentPackID");
    asset.contentPackName = object.optionalString("contentPackName");
    asset.contentPackVersion = object.optionalFlexibleVersion("contentPackVersion");
    asset.mediaType = object.optionalString("mediaType");
    asset.originalFileExtension = object.optionalString("originalFileExtension");
    asset.remoteVideoURL = optionalURL(object, "remoteVideoURL");
    asset.remoteImageURL = optionalURL(object, "remoteImageURL");
    asset.remoteThumbnailURL = optionalURL(object, "remoteThumbnailURL");
    asset.remotePreviewVideoURL = optionalURL(object, "remotePreviewVideoURL");
    asset.remoteProtectedAssetURL = optionalURL(object, "remoteProtectedAssetURL");
    asset.protectedSHA256Hex = object.optionalString("protectedSHA256Hex");
    asset.fileSizeBytes = object.optionalInteger("fileSizeBytes");
    asset.sha256Hex = object.optionalString("sha256Hex");
    asset.durationSeconds = object.optionalNumber("durationSeconds");
    return asset;
}

LaunchContentPackManifest::Pack decodePack(const JsonObject& object) {
    LaunchContentPackManifest::Pack pack;
    pack.id = object.requiredString("id");
    pack.name = object.requiredString("name");
    pack.version = object.requiredFlexibleVersion("version");
    pack.thumbnailURL = optionalURL(object, "thumbnailURL");
    return pack;
}

} // namespace

TokenResponse decodeTokenResponse(const QByteArray& body) {
    const JsonObject object = JsonObject::parse(body);
    TokenResponse response;
    response.accessToken = object.requiredString("accessToken");
    response.refreshToken = object.requiredString("refreshToken");
    response.expiresIn = object.requiredInteger("expiresIn");
    if (response.expiresIn > longestLifetimeSeconds || response.expiresIn < -longestLifetimeSeconds)
        throw LaunchError::decoding(u"The session's expiresIn is out of range."_s);
    return response;
}

WebsiteAccount decodeAccountResponse(const QByteArray& body) {
    const JsonObject object = JsonObject::parse(body);
    return WebsiteAccount{object.requiredString("customerID"), object.requiredString("displayName"),
                          object.optionalString("email").value_or(QString())};
}

void decodeSignOutResponse(const QByteArray& body) {
    if (QByteArray(body).trimmed() == "null")
        return;
    const JsonObject object = JsonObject::parse(body);
    if (!object.optionalBool("ok"))
        throw LaunchError::decoding(u"The sign-out answer has no \"ok\"."_s);
}

LaunchContentPackManifest decodeContentPackManifest(const QByteArray& body) {
    const JsonObject object = JsonObject::parse(body);
    LaunchContentPackManifest manifest;
    for (const JsonObject& asset : object.requiredObjects("assets"))
        manifest.assets.push_back(decodeAsset(asset));
    for (const JsonObject& pack : object.requiredObjects("contentPacks"))
        manifest.contentPacks.push_back(decodePack(pack));
    return manifest;
}

} // namespace WebsiteResponses
