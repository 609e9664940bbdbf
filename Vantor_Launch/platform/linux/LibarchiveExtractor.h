#pragma once

#include "platform/ArchiveExtractor.h"

// Zip extraction in process with libarchive: only regular files, folders and symbolic links that
// stay inside the destination; file modes kept without set-id bits.
class LibarchiveExtractor : public ArchiveExtractor {
public:
    explicit LibarchiveExtractor(qint64 totalBytesCeiling = maximumTotalBytes,
                                 qint64 entryCeiling = maximumEntries);

    bool extract(const QString& archive, const QString& destination,
                 const Checkpoint& checkpoint = {}) const override;
    Streamed extractGrowing(const QString& archive, const GrowingFile& growth,
                            const QString& destination,
                            const Checkpoint& checkpoint = {}) const override;
    std::optional<qint64> unpackedSize(const QString& archive) const override;

    // Whether a link stored at entryPath (relative to the destination) with this target stays
    // inside the destination, judged on the text alone.
    static bool linkStaysInside(const QByteArray& entryPath, const QByteArray& target);
    // Whether an entry name is relative and has no ".." component.
    static bool isContainedName(const QByteArray& entryPath);

private:
    qint64 m_totalBytesCeiling;
    qint64 m_entryCeiling;
};
