#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QUrl>
#include <initializer_list>
#include <optional>

// What a bundle's "Contents/Info.plist" says about it.
struct ApplicationBundleMetadata {
    std::optional<QString> bundleIdentifier;
    std::optional<QString> version;
    std::optional<QString> build;
    friend bool operator==(const ApplicationBundleMetadata&,
                           const ApplicationBundleMetadata&) = default;
};

// None when the property list is missing, unreadable, nested too deep (BoundedPropertyList) or
// not a dictionary; XML and binary forms.
std::optional<ApplicationBundleMetadata> readBundleMetadata(const QUrl& bundle);

// The text values among the given keys of the bundle's Info.plist (a key whose value is absent,
// not text, or not readable as text is left out); none under the same conditions as
// readBundleMetadata.
std::optional<QHash<QByteArray, QString>>
readInfoPlistStrings(const QUrl& bundle, std::initializer_list<const char*> keys);

// The same for the bytes of a property list, from wherever they came.
std::optional<QHash<QByteArray, QString>> infoPlistStrings(const QByteArray& document,
                                                           std::initializer_list<const char*> keys);

// One bundle, however its path was reached: running copies are reported with links resolved, so a
// bundle in a linked folder is compared by where it really lies.
QString bundleIdentity(const QUrl& bundle);
