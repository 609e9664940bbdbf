#pragma once

#include "foundation/AvailableApplicationRelease.h"

#include <QByteArray>
#include <QString>
#include <optional>

// What the updater writes beside a prepared release once it is verified: which release it is,
// where its bundle lies, and the fingerprint of the bundle's tree at verification. Read back from
// disk, it is trusted no further than its shape: parse() takes only what serialize() writes.
struct PreparedReleaseRecord {
    static constexpr qsizetype maximumBytes = 16 * 1024;

    AvailableApplicationRelease release;
    QString bundleName; // one name inside the staging folder
    QByteArray fingerprint;

    static std::optional<PreparedReleaseRecord> parse(const QByteArray& bytes);
    QByteArray serialize() const;

    // Every item under bundle (itself included): its path, kind, permissions, size, inode, and
    // modification and change times, and a link's target. A file written, replaced, renamed or
    // given other permissions changes its change time, which no one can set back, so the same
    // fingerprint later means the same files without reading them: a few milliseconds for a
    // bundle of thousands of files. Empty when the tree cannot be read. Blocks.
    static QByteArray fingerprintOf(const QString& bundle);

    friend bool operator==(const PreparedReleaseRecord&, const PreparedReleaseRecord&) = default;
};
