#pragma once

#include "platform/BundleReplacement.h"

#include <QByteArray>
#include <functional>
#include <optional>

// Replacement with renameat2(RENAME_EXCHANGE): the staged bundle and the installed one trade
// names in one step of the file system, so no instant exists without a whole bundle in place.
// File systems without the exchange (FAT, some network file systems) get two renames instead,
// the installed bundle into the work folder and the staged one into its place, written down
// first in a journal beside the bundle; whoever finds the journal later (the next start, the next
// replacement) finishes the move or takes it back, so that a whole bundle is in place again.
class RenameExchangeReplacement : public BundleReplacement {
public:
    enum class Step { cleanedLeftovers, staged, journalWritten, movedAside, movedIn, replaced };
    // Tests take the two renames where the file system could exchange.
    enum class Exchange { whenSupported, never };

    // What a journal records: the names of the installed bundle in its folder and of its backup in
    // the work folder, the staged bundle carrying the installed one's name there too.
    struct Journal {
        QByteArray bundleName;
        QByteArray backupName;

        static constexpr qsizetype maximumBytes = 4096;
        // None unless the bytes are a journal whose names are single path components.
        static std::optional<Journal> parse(const QByteArray& bytes);
        QByteArray serialize() const;
        friend bool operator==(const Journal&, const Journal&) = default;
    };

    // checkpoint runs after each step (tests pause there to interrupt the replacement).
    explicit RenameExchangeReplacement(std::function<void(Step)> checkpoint = {},
                                       Exchange exchange = Exchange::whenSupported);

    QString replace(const QString& installed, const QString& replacement,
                    const QString& backupName) override;

    // Finishes or takes back each replacement in folder that two renames left half done, then
    // deletes the work folders that earlier replacements left. A journal that cannot be read,
    // or whose bundles are all gone, stays with its work folder for a person to look at: what
    // lies there may be the only copy. Blocks; only one process may replace or recover in a
    // folder at a time.
    static void recoverInterrupted(const QString& folder);

private:
    std::function<void(Step)> m_checkpoint;
    Exchange m_exchange;

    void checkpoint(Step step) const;
    void moveByTwoRenames(const QString& installed, const QString& workFolder,
                          const QString& backupName) const;
};
