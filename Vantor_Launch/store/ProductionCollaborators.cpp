#include "account/DemoWebsiteAccountProvider.h"
#include "account/FileAccountSnapshotCache.h"
#include "account/ProductionWebsiteAccountProvider.h"
#include "applications/DirectorReleaseChecker.h"
#include "applications/ProductionApplicationDiscovery.h"
#include "applications/ProductionApplicationUpdater.h"
#include "content_packs/ProductionCatalogueProvider.h"
#include "content_packs/ProductionContentPackInstaller.h"
#include "foundation/TrustingNetworkAccessManager.h"
#include "platform/PlatformServices.h"
#include "platform/SecretStore.h"
#include "store/LaunchCollaborators.h"

#include <QNetworkAccessManager>
#include <QNetworkInformation>
#include <QSslConfiguration>

namespace {

// The system's authorities, plus those a development configuration names (a website on loopback
// with a certificate of its own). Without any, the manager keeps Qt's own loading of the system
// store.
std::shared_ptr<QNetworkAccessManager>
makeNetworkAccess(const QList<QByteArray>& extraAuthoritiesPem) {
    if (extraAuthoritiesPem.isEmpty())
        return std::make_shared<QNetworkAccessManager>();
    QList<QSslCertificate> authorities = QSslConfiguration::systemCaCertificates();
    for (const QByteArray& pem : extraAuthoritiesPem)
        authorities.append(QSslCertificate::fromData(pem, QSsl::Pem));
    return std::make_shared<TrustingNetworkAccessManager>(std::move(authorities));
}

} // namespace

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

    // One manager for every service that talks to the website: it holds the trust settings and
    // the connections they share.
    const auto network = makeNetworkAccess(configuration.trustedCertificateAuthorities);
    collaborators.network = network;

    collaborators.browserSignIn = PlatformServices::makeBrowserSignIn();
    collaborators.productionAccountProvider = std::make_shared<ProductionWebsiteAccountProvider>(
        configuration,
        std::make_shared<LaunchTokenStore>(PlatformServices::makeSecretStore(),
                                           configuration.secretStoreService),
        collaborators.browserSignIn, network, collaborators.now);
    collaborators.snapshotCache = std::make_shared<FileAccountSnapshotCache>();

    collaborators.discovery =
        std::make_shared<ProductionApplicationDiscovery>(configuration, collaborators.workspace);
    if (configuration.releaseMetadataURL)
        collaborators.releaseChecker =
            std::make_shared<DirectorReleaseChecker>(*configuration.releaseMetadataURL, network);
    if (configuration.catalogueURL)
        collaborators.catalogueProvider =
            std::make_shared<ProductionCatalogueProvider>(*configuration.catalogueURL, network);
    collaborators.contentPackInstaller = std::make_shared<ProductionContentPackInstaller>(network);
    collaborators.applicationUpdater =
        std::make_shared<ProductionApplicationUpdater>(ProductionApplicationUpdater::Services{
            network, collaborators.workspace, PlatformServices::makeArchiveExtractor(),
            PlatformServices::makeCodeSignature(configuration.codeSigningAnchors),
            PlatformServices::makeBundleReplacement()});
    collaborators.preparesUpdatesInBackground = true;
    collaborators.isConnectionMetered = [] {
        const auto* information =
            QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Metered)
                ? QNetworkInformation::instance()
                : nullptr;
        return information && information->isMetered();
    };
    return collaborators;
}
