#pragma once

#include "applications/ApplicationUpdating.h"
#include "foundation/StreamingDownload.h"
#include "platform/ArchiveExtractor.h"
#include "platform/BundleReplacement.h"
#include "platform/CodeSignature.h"
#include "platform/Workspace.h"

#include <QString>
#include <memory>

class QNetworkAccessManager;

// Installs a published release in place of the installed Director, and only once the download
// has proved to be the same product, the exact published version, validly signed, and signed by
// the same team as the copy it replaces. Never starts or quits applications: it refuses to
// replace one that runs. Throws LaunchError: the updater's own cases (ApplicationUpdaterError),
// URL errors, and file errors passed through.
class ProductionApplicationUpdater : public ApplicationUpdating {
public:
    struct Services {
        std::shared_ptr<QNetworkAccessManager> network;
        std::shared_ptr<Workspace> workspace;
        std::shared_ptr<ArchiveExtractor> extractor;
        std::shared_ptr<CodeSignature> signature;
        std::shared_ptr<BundleReplacement> replacement;
    };

    // A download larger than this is not an application release, whatever room the disk has.
    static constexpr qint64 maximumDownloadBytes = ArchiveExtractor::maximumTotalBytes;

    // Where a verified release waits beside the installed bundle, with its record: a name that
    // the sweep of work folders leaves alone.
    static constexpr const char* stagingFolderName = ".vantor-launch-prepared";

    // The download is unpacked as it arrives, in a work folder beside the installed bundle
    // (".vantor-launch-update-<UUID>"), so that the replacement is a rename on one file system
    // and a later run removes what a killed one left. Once verified, the bundle and its record
    // move to the staging folder in one rename: there is never a half-prepared release there.
    explicit ProductionApplicationUpdater(Services services, StreamingDownload::Limits limits = {});

    QCoro::Task<PreparedRelease> prepareUpdate(AvailableApplicationRelease release,
                                               QUrl installedBundle, QStringList bundleIdentifiers,
                                               TransferControl control) override;
    QCoro::Task<std::optional<PreparedRelease>> preparedRelease(AvailableApplicationRelease release,
                                                                QUrl installedBundle) override;
    QCoro::Task<> installPrepared(PreparedRelease prepared, QUrl installedBundle,
                                  QStringList bundleIdentifiers) override;
    QCoro::Task<> discardPrepared(QUrl installedBundle) override;
    QCoro::Task<> installUpdate(AvailableApplicationRelease release, QUrl installedBundle,
                                QStringList bundleIdentifiers, TransferControl control) override;

    // Removes what killed updates left in folder: their work folders, and a staging folder
    // without a whole prepared release. A verified release stays. Blocks: call it from a worker.
    static void removeLeftovers(const QString& folder);

    // installPrepared() returns once the new bundle is in place, and the replaced one is deleted
    // after it; this blocks until every such deletion has ended (for tests, and before the next
    // sweep of the same folders).
    static void waitForBackupRemoval();

private:
    Services m_services;
    StreamingDownload::Limits m_limits;
};
