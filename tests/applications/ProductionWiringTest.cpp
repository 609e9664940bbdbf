#include "BundleBuilder.h"
#include "StoreDoubles.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Launch::InstallationState;

// The services the launcher really runs with, on a throwaway home folder.
class ProductionWiringTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_home;

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_home.isValid());
        qputenv("HOME", QFile::encodeName(m_home.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_home.filePath(u".config"_s)));
    }

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

    void startFindsTheDirectorInTheHomeApplicationsFolder() {
        const QUrl bundle =
            writeBundle(m_home.filePath(u"Applications"_s), u"Vantor Director.app"_s,
                        {u"nz.co.halvex.VantorDirector"_s, u"2.4.1"_s, u"2410"_s});
        LaunchConfiguration configuration = LaunchConfiguration::production();
        // Nothing here may reach the network.
        configuration.releaseMetadataURL.reset();
        configuration.catalogueURL.reset();
        LaunchStore store(LaunchCollaborators::production(configuration));

        auto start = store.start();
        QVERIFY(finishes(start, 15000));
        QCOMPARE(store.apps().size(), 2);
        QCOMPARE(store.apps()[0].path, bundle);
        QCOMPARE(store.apps()[0].installedVersion, u"2.4.1"_s);
        QCOMPARE(store.apps()[0].state, InstallationState::stale);
        QCOMPARE(store.apps()[1].path, bundle);
        QCOMPARE(store.apps()[1].state, InstallationState::included);
    }
};

QTEST_GUILESS_MAIN(ProductionWiringTest)
#include "ProductionWiringTest.moc"
