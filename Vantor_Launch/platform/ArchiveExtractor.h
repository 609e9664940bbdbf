#pragma once

#include <QString>
#include <QtGlobal>
#include <optional>

// Unpacks a downloaded zip archive. Everything in it is hostile until proved otherwise: an entry
// that would land outside the destination, a link that points out of it, or an archive larger than
// the ceilings below makes the whole archive unusable.
class ArchiveExtractor {
public:
    // Generous enough for any release of the applications; small enough that an archive bomb
    // cannot fill the disk or exhaust inodes.
    static constexpr qint64 maximumTotalBytes = qint64(16) * 1024 * 1024 * 1024;
    static constexpr qint64 maximumEntries = 250'000;

    virtual ~ArchiveExtractor() = default;

    // Unpacks archive into destination, an existing empty folder. False when the archive is
    // damaged, exceeds a ceiling or holds an entry that escapes destination; what was written
    // until then stays for the caller to remove. Throws LaunchError when destination cannot be
    // written (disk full, no permission). Blocks: call it from a worker thread.
    virtual bool extract(const QString& archive, const QString& destination) const = 0;

    // What the archive's entries say they unpack to, read from its directory without unpacking;
    // nullopt when the archive cannot be read. For the space check only: extract() counts what it
    // really writes. Blocks: call it from a worker thread.
    virtual std::optional<qint64> unpackedSize(const QString& archive) const = 0;
};
