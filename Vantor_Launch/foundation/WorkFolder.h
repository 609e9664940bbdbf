#pragma once

#include <QString>

// A folder the launcher writes while it works (a pack being staged, an update being unpacked),
// made beside where its contents end up so that publishing them is a rename. Its name says whose
// it is (".vantor-launch-<kind>-<UUID>") and a lock file beside it, held for as long as this
// object lives, says that a running launcher still needs it: removeLeftovers() takes only what no
// live process holds, so a killed launcher's leftovers go at the next run and a running one's
// stay. Blocking file work: call it from a worker.
class WorkFolder {
public:
    static constexpr const char* prefix = ".vantor-launch-";

    // Creates parent/.vantor-launch-<kind>-<UUID> and holds its lock. Throws a file LaunchError.
    static WorkFolder create(const QString& parent, const QString& kind);

    // Removes every work folder (and its lock file) in parent that no running launcher holds.
    // Returns how many it removed; errors are ignored, the next run tries again.
    static int removeLeftovers(const QString& parent);

    // Earlier launchers staged in the system's temporary folder under names without a lock
    // ("vantor-launch-pack-<UUID>", "vantor-launch-download-<UUID>.zip",
    // "vantor-launch-update-<UUID>"); no launcher works there any more, so this user's are removed.
    static int removeEarlierTemporaryItems(const QString& temporaryFolder);

    WorkFolder() = default;
    WorkFolder(WorkFolder&& other) noexcept;
    WorkFolder& operator=(WorkFolder&& other) noexcept;
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    // Removes the folder and lets go of the lock.
    ~WorkFolder();

    const QString& path() const { return m_path; }
    // A new path for an item inside the folder's parent that the same lock covers (".trash" for
    // example): removeLeftovers() treats it as part of this folder.
    QString sibling(const QString& suffix) const { return m_path + suffix; }

private:
    WorkFolder(QString path, int lockDescriptor);
    void release();

    QString m_path;
    int m_lock = -1;
};
