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
// the same team as the copy it replaces. Never starts or quits applications: it refuses while one
// runs. Throws LaunchError: the updater's own cases (ApplicationUpdaterError), URL errors, and
// file errors passed through.
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

    // The download and the unpacked bundle live in a work folder beside the installed bundle
    // (".vantor-launch-update-<UUID>"), so that the replacement is a rename on one file system
    // and a later run removes what a killed one left.
    explicit ProductionApplicationUpdater(Services services, StreamingDownload::Limits limits = {});

    QCoro::Task<> installUpdate(AvailableApplicationRelease release, QUrl installedBundle,
                                QStringList bundleIdentifiers, TransferControl control) override;

private:
    Services m_services;
    StreamingDownload::Limits m_limits;
};
