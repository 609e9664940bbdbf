#pragma once

#include <QString>
#include <QStringList>

// Puts a verified bundle in the place of an installed one so that, whatever happens, the installed
// path holds either the whole old bundle or the whole new one: at once where the file system
// swaps two names in one step, and elsewhere once recoverInterruptedReplacements has run.
class BundleReplacement {
public:
    // Folders beside installed bundles whose names begin with this are work folders of a
    // replacement, and files so named its journals; they are hidden, so that a folder scan never
    // shows their contents as an installed application.
    static constexpr const char* workFolderPrefix = ".vantor-launch-replacing-";

    virtual ~BundleReplacement() = default;

    // Moves (or, from another file system, copies) replacement into a new work folder beside
    // installed, then puts it in installed's place. A replacement that can be moved must have its
    // files' contents on disk already (flushed when it was written): only the names are flushed
    // here, so that the exchange does not wait on everything else the disk has to write. The
    // replaced bundle ends in that work folder under backupName (which must not be installed's own
    // name); the returned path is the work folder, for the caller to delete. A replacement
    // interrupted earlier in the same folder is finished or taken back first, and what it left is
    // removed. Throws LaunchError when it fails, leaving installed as it was. Blocks: call it from
    // a worker.
    virtual QString replace(const QString& installed, const QString& replacement,
                            const QString& backupName) = 0;
};

namespace PlatformServices {

// Puts back in place, in each folder, a bundle whose replacement was cut short (a crash, a power
// cut) where the file system could not replace it in one step, and removes what earlier
// replacements left there. Call it at start-up, before anything looks for bundles in those
// folders, from the one launcher that may replace them. Blocks.
void recoverInterruptedReplacements(const QStringList& folders);

} // namespace PlatformServices
