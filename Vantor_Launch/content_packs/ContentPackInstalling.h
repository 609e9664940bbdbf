#pragma once

#include "foundation/LaunchContentPackManifest.h"

#include <QCoroTask>
#include <QHash>
#include <QString>
#include <functional>

// Installs packs into the content store that Vantor Creator reads, and reports what is there.
class ContentPackInstalling {
public:
    // Bytes received so far of the bytes expected, across every file of the pack; called on the
    // main thread, a few times per second at most.
    using Progress = std::function<void(qint64 received, qint64 expected)>;

    virtual ~ContentPackInstalling() = default;
    // Throws LaunchError. `progress` may be empty.
    virtual QCoro::Task<> install(QString packID, LaunchContentPackManifest manifest,
                                  Progress progress) = 0;
    // Pack id to installed version; never fails (an unreadable store reads as empty).
    virtual QCoro::Task<QHash<QString, QString>> installedPackVersions() = 0;
};
