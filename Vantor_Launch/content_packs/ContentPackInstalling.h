#pragma once

#include "content_packs/LaunchContentPackManifest.h"

#include <QCoroTask>
#include <QHash>
#include <QString>

// Installs packs into the content store that Vantor Creator reads, and reports what is there.
class ContentPackInstalling {
public:
    virtual ~ContentPackInstalling() = default;
    // Throws LaunchError.
    virtual QCoro::Task<> install(QString packID, LaunchContentPackManifest manifest) = 0;
    // Pack id to installed version; never fails (an unreadable store reads as empty).
    virtual QCoro::Task<QHash<QString, QString>> installedPackVersions() = 0;
};
