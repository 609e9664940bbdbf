#pragma once

#include "foundation/InstalledApp.h"

#include <QCoroTask>
#include <QList>

// Finds the installed copies of the managed applications. Never fails: whatever cannot be read
// simply is not found.
class ApplicationDiscovering {
public:
    virtual ~ApplicationDiscovering() = default;
    virtual QCoro::Task<QList<InstalledApp>> discoverApplications() = 0;
};
