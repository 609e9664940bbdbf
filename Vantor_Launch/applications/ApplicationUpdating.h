#pragma once

#include "foundation/AvailableApplicationRelease.h"

#include <QCoroTask>
#include <QStringList>
#include <QUrl>

// Replaces the installed bundle with a verified download of the release. Throws LaunchError.
class ApplicationUpdating {
public:
    virtual ~ApplicationUpdating() = default;
    virtual QCoro::Task<> installUpdate(AvailableApplicationRelease release, QUrl installedBundle,
                                        QStringList bundleIdentifiers) = 0;
};
