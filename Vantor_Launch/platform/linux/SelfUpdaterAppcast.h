#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>
#include <optional>

// A release of the launcher as a Sparkle appcast describes it.
struct AppcastRelease {
    QString version;      // sparkle:version, compared with the running build
    QString shortVersion; // sparkle:shortVersionString, shown to the user
    QUrl downloadURL;     // the enclosure's url, or the item's link
    friend bool operator==(const AppcastRelease&, const AppcastRelease&) = default;
};

namespace SelfUpdaterAppcast {

// The newest release of the default channel; none when the feed lists none. Throws
// std::runtime_error when the document is not a readable RSS feed.
std::optional<AppcastRelease> newestRelease(const QByteArray& document);

// Sparkle's ordering of version strings: numbers compare as numbers, and a release ("1.0") is
// newer than its pre-releases ("1.0b2"). Negative, zero or positive like strcmp.
int compareVersions(const QString& left, const QString& right);

} // namespace SelfUpdaterAppcast
