#include "BundleBuilder.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "ThrowawayHome.h"
#include "WebsiteFixture.h"
#include "content_packs/ProductionCatalogueProvider.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

// The services the launcher really runs with, on a throwaway home folder.
class ProductionWiringTest : public QObject {
    Q_OBJECT

private:
    ThrowawayHome m_home;

private Q_SLOTS:
    // The release check and the public catalogue each need their own address; discovery and the
    // pack installer are always there.
    void optionalServicesOnlyWithTheirAddress() {
        const auto wired = [](const std::function<void(LaunchConfiguration&)>& change) {
            LaunchConfiguration configuration = LaunchConfiguration::production();
            change(configuration);
            return LaunchCollaborators::production(configuration);
        };
        const auto all = wired([](LaunchConfiguration&) {});
        QVERIFY(all.discovery && all.contentPackInstaller && all.releaseChecker);
        QVERIFY(dynamic_cast<ProductionCatalogueProvider*>(all.catalogueProvider.get()));
        const auto noManifest =
            wired([](auto& configuration) { configuration.releaseMetadataURL.reset(); });
        QVERIFY(noManifest.discovery && !noManifest.releaseChecker && noManifest.catalogueProvider);
        const auto noCatalogue =
            wired([](auto& configuration) { configuration.catalogueURL.reset(); });
        QVERIFY(noCatalogue.contentPackInstaller && noCatalogue.releaseChecker);
        QVERIFY(!noCatalogue.catalogueProvider);
    }

    // The website's own authority, named in the configuration file the sample website writes, is
    // trusted for every request of the shared manager; without it the same server is refused.
    void trustsTheAuthoritiesTheConfigurationNames() {
        WebsiteFixture website;
        const QString authority = m_home.filePath(u"website.pem"_s);
        const QString file = m_home.filePath(u"endpoints.json"_s);
        writeFile(authority, website.server().authority().certificatePem());
        writeFile(file, QJsonDocument(website.website().launcherConfiguration(authority)).toJson());
        LaunchConfiguration configuration = LaunchConfiguration::fromFile(file);

        const auto check = [](const LaunchConfiguration& configuration) {
            const LaunchCollaborators collaborators =
                LaunchCollaborators::production(configuration);
            return outcomeOf(collaborators.releaseChecker->latestRelease(), 30000);
        };
        auto trusted = check(configuration);
        QVERIFY2(!trusted.error, qPrintable(trusted.error ? trusted.error->description() : u""_s));
        QCOMPARE(trusted.value->value().version, u"2.5.0"_s);

        configuration.trustedCertificateAuthorities.clear();
        const auto untrusted = check(configuration);
        QVERIFY(untrusted.error);
        QVERIFY(untrusted.error->isUrlError(LaunchError::secureConnectionFailed));
    }
};

QTEST_GUILESS_MAIN(ProductionWiringTest)
#include "ProductionWiringTest.moc"
