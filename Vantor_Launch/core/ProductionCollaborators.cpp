#include "account/DemoWebsiteAccountProvider.h"
#include "core/LaunchCollaborators.h"
#include "platform/PlatformServices.h"

LaunchCollaborators LaunchCollaborators::production(const LaunchConfiguration& configuration) {
    LaunchCollaborators collaborators;
    collaborators.configuration = configuration;
    collaborators.now = [] { return QDateTime::currentDateTimeUtc(); };
    collaborators.workspace = PlatformServices::makeWorkspace();
    collaborators.bookmarks = PlatformServices::makeBookmarkStore();
    collaborators.notifier = PlatformServices::makeDistributedNotifier();
    collaborators.settings = std::make_shared<QSettings>();
    collaborators.makeDemoAccountProvider = [](Launch::DemoScenario scenario) {
        return std::make_shared<DemoWebsiteAccountProvider>(scenario);
    };
    return collaborators;
}
