#include "BundleBuilder.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "ThrowawayHome.h"
#include "WebsiteFixture.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

// The services the launcher really runs with, on a throwaway home folder.
class ProductionWiringTest : public QObject {
    Q_OBJECT

private:
    ThrowawayHome m_home;

private Q_SLOTS:
    void releaseCheckerOnlyWithAManifestAddress() {
        LaunchConfiguration configuration = LaunchConfiguration::production();
        LaunchCollaborators collaborators = LaunchCollaborators::production(configuration);
        QVERIFY(collaborators.discovery);
        QVERIFY(collaborators.releaseChecker);

        configuration.releaseMetadataURL.reset();
        collaborators = LaunchCollaborators::production(configuration);
        QVERIFY(collaborators.discovery);
        QVERIFY(!collaborators.releaseChecker);
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
