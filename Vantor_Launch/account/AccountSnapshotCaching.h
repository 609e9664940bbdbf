#pragma once

#include "foundation/LaunchAccountSnapshot.h"

#include <optional>

// Keeps the account snapshot between runs. The file is small by construction, so the calls are
// synchronous; each may throw LaunchError.
class AccountSnapshotCaching {
public:
    virtual ~AccountSnapshotCaching() = default;
    virtual std::optional<LaunchAccountSnapshot> load() = 0;
    virtual void save(const LaunchAccountSnapshot& snapshot) = 0;
    virtual void clear() = 0;
};
