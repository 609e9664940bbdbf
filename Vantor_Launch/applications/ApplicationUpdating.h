#pragma once

#include "foundation/AvailableApplicationRelease.h"
#include "foundation/TransferControl.h"

#include <QCoroTask>
#include <QStringList>
#include <QUrl>
#include <optional>

// A release downloaded, unpacked and verified beside the installed bundle, waiting for the moment
// the application may be replaced.
struct PreparedRelease {
    AvailableApplicationRelease release;
    // The verified bundle, in the updater's own place beside the installed one.
    QUrl bundle;

    friend bool operator==(const PreparedRelease&, const PreparedRelease&) = default;
};

// Replaces the installed bundle with a verified download of a release, in two steps so that the
// application stays usable while its update downloads: prepareUpdate() while it runs, then
// installPrepared() once it is closed. Throws LaunchError; a cancelled preparation throws the
// cancelled URL error, and nothing ever changes the installed bundle but a whole, verified one.
class ApplicationUpdating {
public:
    virtual ~ApplicationUpdating() = default;

    // Downloads, unpacks and verifies the release beside installedBundle, whether or not the
    // application runs. At most one release is kept prepared there: this one replaces any other.
    virtual QCoro::Task<PreparedRelease> prepareUpdate(AvailableApplicationRelease release,
                                                       QUrl installedBundle,
                                                       QStringList bundleIdentifiers,
                                                       TransferControl control) = 0;
    // The release prepared beside installedBundle, by this launcher or an earlier run of it, when
    // it is this release and unchanged since it was verified.
    virtual QCoro::Task<std::optional<PreparedRelease>>
    preparedRelease(AvailableApplicationRelease release, QUrl installedBundle) = 0;
    // Checks the prepared release again and puts it in the installed bundle's place. Refuses while
    // the application runs; a prepared release that changed is discarded.
    virtual QCoro::Task<> installPrepared(PreparedRelease prepared, QUrl installedBundle,
                                          QStringList bundleIdentifiers) = 0;
    // Removes the release prepared beside installedBundle, if any.
    virtual QCoro::Task<> discardPrepared(QUrl installedBundle) = 0;

    // Both steps at once, for callers that want the update now; refuses while the application
    // runs and leaves nothing prepared when it fails.
    virtual QCoro::Task<> installUpdate(AvailableApplicationRelease release, QUrl installedBundle,
                                        QStringList bundleIdentifiers, TransferControl control) = 0;
};
