#pragma once

#include "foundation/AvailableApplicationRelease.h"
#include "foundation/TransferControl.h"

#include <QCoroTask>
#include <QStringList>
#include <QUrl>

// Replaces the installed bundle with a verified download of the release. Throws LaunchError; a
// cancelled update throws the cancelled URL error and leaves the installed bundle as it was.
class ApplicationUpdating {
public:
    virtual ~ApplicationUpdating() = default;
    virtual QCoro::Task<> installUpdate(AvailableApplicationRelease release, QUrl installedBundle,
                                        QStringList bundleIdentifiers, TransferControl control) = 0;
};
