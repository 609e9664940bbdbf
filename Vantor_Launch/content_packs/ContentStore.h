#pragma once

#include "content_packs/InstalledAsset.h"

#include <QHash>
#include <QList>
#include <QString>
#include <optional>

// Vantor Creator's content store: the folder "Creator Backgrounds" with its manifest "catalog.json"
// and the pack files under "Packs". Every function blocks on the disk: call it from a worker.
class ContentStore {
public:
    struct Location {
        QString folder;   // the content store in use
        QString fallback; // the per-user data folder, where older launchers kept it
        bool inContainer = false;
    };

    // Found afresh each time: Vantor Director's container when it exists, else the per-user data
    // folder (the temporary folder when there is none). Creates nothing.
    static Location locate();

    // Every character that is neither a letter nor a number, nor "." or "-", becomes "_".
    static QString fileNameFor(const QString& text);
    // A name that can be joined to a folder without leaving it.
    static bool isSafeComponent(const QString& name);

    // The entries of the store's manifest; nullopt when the file is missing or unreadable.
    static std::optional<QList<InstalledAsset>> readEntries(const QString& folder);
    // Sorts by name (stable, by code point), creates the folder and replaces the file: written
    // beside it, flushed, read back and renamed over it, so that a full disk or a kill leaves
    // the previous manifest whole. Throws a file LaunchError in the system's words.
    static void writeEntries(const QString& folder, QList<InstalledAsset> entries);
    // Replaces every entry of the pack with `entries` in one read-modify-write and returns the
    // entries it replaced. A manifest that exists but cannot be read is kept aside under a dated
    // name ("catalog.json.unreadable-<UTC time>") first, never silently overwritten.
    static QList<InstalledAsset> replacePackEntries(const QString& folder, const QString& packID,
                                                    const QList<InstalledAsset>& entries);

    // Removes what interrupted installs left in the store (work folders no launcher holds).
    static void removeLeftovers(const QString& folder);

    // Pack id to installed pack version, counting only entries whose asset file is still there.
    // Moves content from the older location first. Never fails.
    static QHash<QString, QString> installedPackVersions();

    // Copies the older location's packs and entries into the container, every time it runs.
    // Returns false at the first failure; what was copied before stays.
    static bool moveLegacyContent(const Location& location);

    // A local file URL under `from` re-rooted under `to`; anything else stays as it is.
    static std::optional<QUrl> rebase(const std::optional<QUrl>& url, const QString& from,
                                      const QString& to);
};
