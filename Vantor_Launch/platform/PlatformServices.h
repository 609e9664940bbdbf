#pragma once

#include "platform/BookmarkStore.h"
#include "platform/DistributedNotifier.h"
#include "platform/Workspace.h"

#include <memory>

// The backend of the platform this program was built for. CMake compiles exactly one
// implementation of these functions.
namespace PlatformServices {

std::shared_ptr<Workspace> makeWorkspace();
std::shared_ptr<BookmarkStore> makeBookmarkStore();
std::shared_ptr<DistributedNotifier> makeDistributedNotifier();

} // namespace PlatformServices
