#pragma once

#include "content_packs/ContentPackInstalling.h"
#include "foundation/StreamingDownload.h"

#include <functional>
#include <memory>

class QNetworkAccessManager;

// Downloads every file of a pack into a work folder inside the content store, proves each asset
// against its published SHA-256, then renames the folder into place and records its entries in
// "catalog.json". Nothing reaches the content store unless every file arrived and passed, and at
// every instant "catalog.json" names only whole files: the new version folder is complete before
// the manifest changes, and the files it replaces go only after the manifest names the new ones.
class ProductionContentPackInstaller : public ContentPackInstalling {
public:
    // The steps of publishing a staged pack, in order.
    enum class Step { staged, movedIntoPlace, manifestWritten, oldVersionsMoved };

    // checkpoint runs on the worker after each step (tests pause there to interrupt an install).
    explicit ProductionContentPackInstaller(std::shared_ptr<QNetworkAccessManager> network,
                                            StreamingDownload::Limits limits = {},
                                            std::function<void(Step)> checkpoint = {});

    QCoro::Task<> install(QString packID, LaunchContentPackManifest manifest,
                          TransferControl control) override;
    QCoro::Task<QHash<QString, QString>> installedPackVersions() override;

private:
    std::shared_ptr<QNetworkAccessManager> m_network;
    StreamingDownload::Limits m_limits;
    std::function<void(Step)> m_checkpoint;
};
