#pragma once

#include "foundation/LaunchContentPackManifest.h"
#include "foundation/TransferControl.h"

#include <QCoroTask>
#include <QHash>
#include <QString>
#include <functional>

// Installs packs into the content store that Vantor Creator reads, and reports what is there.
class ContentPackInstalling {
public:
    virtual ~ContentPackInstalling() = default;
    // Throws LaunchError; a cancelled install throws the cancelled URL error and leaves the
    // content store as it was. The progress counts every file of the pack.
    virtual QCoro::Task<> install(QString packID, LaunchContentPackManifest manifest,
                                  TransferControl control) = 0;
    // Pack id to installed version; never fails (an unreadable store reads as empty).
    virtual QCoro::Task<QHash<QString, QString>> installedPackVersions() = 0;
};
