#include "content_packs/InstalledAsset.h"

#include "content_packs/PackJson.h"
#include "foundation/StrictJson.h"

namespace {

std::optional<FlexibleVersion> optionalVersion(const JsonObject& entry, const char* key) {
    if (const auto text = entry.optionalFlexibleVersion(key))
        return FlexibleVersion{*text};
    return std::nullopt;
}

void put(nlohmann::json& object, const char* key, const std::optional<QString>& value) {
    if (value)
        object[key] = value->toStdString();
}

void put(nlohmann::json& object, const char* key, const std::optional<FlexibleVersion>& value) {
    if (value)
        object[key] = value->value.toStdString();
}

void put(nlohmann::json& object, const char* key, const std::optional<QUrl>& value) {
    if (value)
        object[key] = urlText(*value);
}

template <typename Number>
void put(nlohmann::json& object, const char* key, const std::optional<Number>& value) {
    if (value)
        object[key] = *value;
}

} // namespace

InstalledAsset InstalledAsset::decode(const JsonObject& entry) {
    InstalledAsset asset;
    asset.id = entry.requiredString("id");
    asset.name = entry.requiredString("name");
    asset.category = entry.requiredString("category");
    asset.tags = entry.optionalStrings("tags");
    asset.version = entry.requiredInteger("version");
    asset.installedVersion = entry.optionalInteger("installedVersion");
    asset.contentPackID = entry.optionalString("contentPackID");
    asset.contentPackName = entry.optionalString("contentPackName");
    asset.contentPackVersion = optionalVersion(entry, "contentPackVersion");
    asset.installedContentPackVersion = optionalVersion(entry, "installedContentPackVersion");
    asset.mediaType = entry.optionalString("mediaType");
    asset.originalFileExtension = entry.optionalString("originalFileExtension");
    asset.localVideoURL = optionalURL(entry, "localVideoURL", QUrl::TolerantMode);
    asset.localImageURL = optionalURL(entry, "localImageURL", QUrl::TolerantMode);
    asset.localThumbnailURL = optionalURL(entry, "localThumbnailURL", QUrl::TolerantMode);
    asset.localPreviewVideoURL = optionalURL(entry, "localPreviewVideoURL", QUrl::TolerantMode);
    asset.localProtectedAssetURL = optionalURL(entry, "localProtectedAssetURL", QUrl::TolerantMode);
    asset.remoteVideoURL = optionalURL(entry, "remoteVideoURL", QUrl::TolerantMode);
    asset.remoteImageURL = optionalURL(entry, "remoteImageURL", QUrl::TolerantMode);
    asset.remoteThumbnailURL = optionalURL(entry, "remoteThumbnailURL", QUrl::TolerantMode);
    asset.remotePreviewVideoURL = optionalURL(entry, "remotePreviewVideoURL", QUrl::TolerantMode);
    asset.remoteProtectedAssetURL =
        optionalURL(entry, "remoteProtectedAssetURL", QUrl::TolerantMode);
    asset.protectedSHA256Hex = entry.optionalString("protectedSHA256Hex");
    asset.fileSizeBytes = entry.optionalInteger("fileSizeBytes");
    asset.sha256Hex = entry.optionalString("sha256Hex");
    asset.durationSeconds = entry.optionalNumber("durationSeconds");
    return asset;
}

QList<InstalledAsset> InstalledAsset::decodeCatalog(const QByteArray& document) {
    QList<InstalledAsset> entries;
    for (const JsonObject& entry : JsonObject::parseArray(document))
        entries.append(decode(entry));
    return entries;
}

nlohmann::json InstalledAsset::encode() const {
    nlohmann::json object = nlohmann::json::object();
    object["id"] = id.toStdString();
    object["name"] = name.toStdString();
    object["category"] = category.toStdString();
    if (tags) {
        nlohmann::json list = nlohmann::json::array();
        for (const QString& tag : *tags)
            list.push_back(tag.toStdString());
        object["tags"] = std::move(list);
    }
    object["version"] = version;
    put(object, "installedVersion", installedVersion);
    put(object, "contentPackID", contentPackID);
    put(object, "contentPackName", contentPackName);
    put(object, "contentPackVersion", contentPackVersion);
    put(object, "installedContentPackVersion", installedContentPackVersion);
    put(object, "mediaType", mediaType);
    put(object, "originalFileExtension", originalFileExtension);
    put(object, "localVideoURL", localVideoURL);
    put(object, "localImageURL", localImageURL);
    put(object, "localThumbnailURL", localThumbnailURL);
    put(object, "localPreviewVideoURL", localPreviewVideoURL);
    put(object, "localProtectedAssetURL", localProtectedAssetURL);
    put(object, "remoteVideoURL", remoteVideoURL);
    put(object, "remoteImageURL", remoteImageURL);
    put(object, "remoteThumbnailURL", remoteThumbnailURL);
    put(object, "remotePreviewVideoURL", remotePreviewVideoURL);
    put(object, "remoteProtectedAssetURL", remoteProtectedAssetURL);
    put(object, "protectedSHA256Hex", protectedSHA256Hex);
    put(object, "fileSizeBytes", fileSizeBytes);
    put(object, "sha256Hex", sha256Hex);
    put(object, "durationSeconds", durationSeconds);
    return object;
}

QByteArray InstalledAsset::encodeCatalog(const QList<InstalledAsset>& entries) {
    // nlohmann's objects keep their keys sorted.
    nlohmann::json array = nlohmann::json::array();
    for (const InstalledAsset& entry : entries)
        array.push_back(entry.encode());
    return QByteArray::fromStdString(
        array.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}
