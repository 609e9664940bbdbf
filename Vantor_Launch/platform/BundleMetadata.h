#pragma once

#include <QString>
#include <QUrl>
#include <optional>

// What a bundle's "Contents/Info.plist" says about it.
struct ApplicationBundleMetadata {
    std::optional<QString> bundleIdentifier;
    std::optional<QString> version;
    std::optional<QString> build;
    friend bool operator==(const ApplicationBundleMetadata&,
                           const ApplicationBundleMetadata&) = default;
};

// None when the property list is missing, unreadable or not a dictionary; XML and binary forms.
std::optional<ApplicationBundleMetadata> readBundleMetadata(const QUrl& bundle);
