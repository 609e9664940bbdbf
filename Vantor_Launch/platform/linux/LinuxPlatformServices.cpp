#include "platform/PlatformServices.h"
#include "platform/linux/LinuxBookmarkStore.h"
#include "platform/linux/LinuxDistributedNotifier.h"
#include "platform/linux/LinuxWorkspace.h"

namespace PlatformServices {

std::shared_ptr<Workspace> makeWorkspace() {
    return std::make_shared<LinuxWorkspace>();
}
std::shared_ptr<BookmarkStore> makeBookmarkStore() {
    return std::make_shared<LinuxBookmarkStore>();
}
std::shared_ptr<DistributedNotifier> makeDistributedNotifier() {
    return std::make_shared<LinuxDistributedNotifier>();
}

} // namespace PlatformServices
