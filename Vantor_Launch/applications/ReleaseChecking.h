#pragma once

#include "foundation/AvailableApplicationRelease.h"

#include <QCoroTask>
#include <optional>

// Fetches the newest published Director release. None when the manifest has no applicable
// entry; throws LaunchError on transport, status or decoding failures.
class ReleaseChecking {
public:
    virtual ~ReleaseChecking() = default;
    virtual QCoro::Task<std::optional<AvailableApplicationRelease>> latestRelease() = 0;
};
