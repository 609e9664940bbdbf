#pragma once

#include "account/AccountSnapshotCaching.h"
#include "account/WebsiteAccountProviding.h"
#include "applications/ApplicationDiscovering.h"
#include "applications/ApplicationUpdating.h"
#include "applications/ReleaseChecking.h"
#include "content_packs/CatalogueProviding.h"
#include "content_packs/ContentPackInstalling.h"
#include "foundation/DomainEnums.h"
#include "foundation/LaunchConfiguration.h"
#include "platform/ApplicationLocationChooser.h"
#include "platform/BookmarkStore.h"
#include "platform/BrowserSignIn.h"
#include "platform/DistributedNotifier.h"
#include "platform/Workspace.h"

#include <QDateTime>
#include <QNetworkAccessManager>
#include <QSettings>
#include <functional>
#include <memory>

// Everything the store works with, chosen once when it is built. A null optional service means
// that its endpoint is not configured (catalogue, release check) or that this build does not
// provide it; the flows that need it say so instead of failing.
struct LaunchCollaborators {
    LaunchConfiguration configuration;
    std::shared_ptr<WebsiteAccountProviding> productionAccountProvider;
    std::shared_ptr<AccountSnapshotCaching> snapshotCache;
    std::shared_ptr<ApplicationDiscovering> discovery;
    std::shared_ptr<CatalogueProviding> catalogueProvider;
    std::shared_ptr<ReleaseChecking> releaseChecker;
    std::shared_ptr<ContentPackInstalling> contentPackInstaller;
    std::shared_ptr<ApplicationUpdating> applicationUpdater;
    std::function<QDateTime()> now;
    std::shared_ptr<Workspace> workspace;
    std::shared_ptr<BookmarkStore> bookmarks;
    std::shared_ptr<QSettings> settings;
    std::shared_ptr<ApplicationLocationChooser> locationChooser;
    std::shared_ptr<DistributedNotifier> notifier;
    // The production provider's sign-in window, which the store lets the user cancel.
    std::shared_ptr<BrowserSignIn> browserSignIn;
    // The one connection manager of the website's services, with their trust settings; the
    // views load the catalogue's artwork through it too.
    std::shared_ptr<QNetworkAccessManager> network;
    std::function<std::shared_ptr<WebsiteAccountProviding>(Launch::DemoScenario)>
        makeDemoAccountProvider;
    // Fetches and verifies a newer Director in the background, so that its update closes it only
    // for the exchange. Off where nothing may be fetched unasked (tests, previews).
    bool preparesUpdatesInBackground = false;
    // Whether the connection is known to cost by the byte: then nothing is fetched unasked.
    std::function<bool()> isConnectionMetered;

    // The services of this build on the real machine, for the given configuration.
    static LaunchCollaborators production(const LaunchConfiguration& configuration);
};
