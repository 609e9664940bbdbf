#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>
#include <optional>
#include <vector>

// The pack download manifest that the website API returns for the signed-in account.
struct LaunchContentPackManifest {
    struct Pack {
        QString id;
        QString name;
        QString version;
        std::optional<QUrl> thumbnailURL;
        friend bool operator==(const Pack&, const Pack&) = default;
    };

    struct Asset {
        QString id;
        QString name;
        QString category;
        qint64 version = 0;
        std::optional<QStringList> tags;
        std::optional<QString> contentPackID;
        std::optional<QString> contentPackName;
        std::optional<QString> contentPackVersion;
        std::optional<QString> mediaType;
        std::optional<QString> originalFileExtension;
        std::optional<QUrl> remoteVideoURL;
        std::optional<QUrl> remoteImageURL;
        std::optional<QUrl> remoteThumbnailURL;
        std::optional<QUrl> remotePreviewVideoURL;
        std::optional<QUrl> remoteProtectedAssetURL;
        std::optional<QString> protectedSHA256Hex;
        std::optional<qint64> fileSizeBytes;
        std::optional<QString> sha256Hex;
        std::optional<double> durationSeconds;
        friend bool operator==(const Asset&, const Asset&) = default;
    };

    std::vector<Asset> assets;
    std::vector<Pack> contentPacks;

    friend bool operator==(const LaunchContentPackManifest&,
                           const LaunchContentPackManifest&) = default;
};
