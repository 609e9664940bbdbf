#include "BundleBuilder.h"
#include "TestCertificateAuthority.h"
#include "foundation/LaunchConfiguration.h"
#include "foundation/LaunchError.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class ConfigurationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void listsMissingContractsInOrder() {
        auto configuration = LaunchConfiguration::production();
        QVERIFY(configuration.integrationStatus().isEmpty());
        QVERIFY(configuration.isSignInConfigured());
        // Pages live on the website host, the JSON API and catalogue on a separate host.
        QCOMPARE(configuration.catalogueURL->host(), configuration.accountAPIBaseURL->host());
        QVERIFY(configuration.catalogueURL->host() != configuration.releaseMetadataURL->host());

        configuration.catalogueURL.reset();
        QCOMPARE(configuration.integrationStatus(),
                 QStringList{u"Public Content Pack catalogue contract"_s});

        configuration.releaseMetadataURL.reset();
        configuration.authenticationStartURL.reset();
        configuration.accountAPIBaseURL.reset();
        const QStringList all = configuration.integrationStatus();
        QCOMPARE(all.size(), 4);
        QCOMPARE(all[0], u"Website authentication start endpoint and callback contract"_s);
        QCOMPARE(all[2], u"Release metadata contract"_s);
        QCOMPARE(all[3], u"Public Content Pack catalogue contract"_s);
        QVERIFY(!configuration.isSignInConfigured());
    }

    void verifiesIdentifiersExactly() {
        const auto configuration = LaunchConfiguration::production();
        QVERIFY(configuration.director.isVerifiedIdentifier(u"nz.co.halvex.Pellomar"_s));
        QVERIFY(configuration.director.isVerifiedIdentifier(u"nz.co.halvex.VantorDirector"_s));
        QVERIFY(!configuration.director.isVerifiedIdentifier(u"nz.co.halvex.vantordirector"_s));
        QVERIFY(!configuration.director.isVerifiedIdentifier(u"nz.co.halvex.VantorDirector "_s));
        QVERIFY(!configuration.creator.isVerifiedIdentifier(u"nz.co.halvex.Pellomar"_s));
        QCOMPARE(configuration.productNamed(u"Vantor Director"_s).name,
                 configuration.director.name);
        QCOMPARE(configuration.productNamed(u"anything else"_s).name, configuration.creator.name);
    }

    // Unknown keys are ignored and unnamed ones keep production's values; certificate files are
    // named by absolute paths, as the sample website writes them, or relative to the file's folder.
    void readsDevelopmentConfigurationFile() {
        QTemporaryDir folder;
        const TestCertificateAuthority website(u"Website Root"_s);
        const TestCertificateAuthority developer(u"Developer Root"_s);
        writeFile(folder.filePath(u"website.pem"_s), website.certificatePem());
        writeFile(folder.filePath(u"developer.pem"_s), developer.certificatePem());
        const QString path = folder.filePath(u"endpoints.json"_s);
        writeFile(path, "{\"releaseMetadataURL\": \"https://127.0.0.1:9443/updates/macos.json\", "
                        "\"catalogueURL\": null, \"unknownKey\": 3, \"secretStoreService\": "
                        "\"sample\", \"trustedCertificateAuthorities\": [\"" +
                            folder.filePath(u"website.pem"_s).toUtf8() +
                            "\"], \"codeSigningAnchors\": [\"developer.pem\"]}");

        const auto configuration = LaunchConfiguration::fromFile(path);
        const auto production = LaunchConfiguration::production();
        QCOMPARE(*configuration.releaseMetadataURL,
                 QUrl(u"https://127.0.0.1:9443/updates/macos.json"_s));
        QVERIFY(!configuration.catalogueURL);
        QCOMPARE(configuration.supportURL, production.supportURL);
        QCOMPARE(configuration.secretStoreService, u"sample"_s);
        QCOMPARE(production.secretStoreService, u"nz.co.halvex.VantorLaunch.website-session"_s);
        QCOMPARE(configuration.trustedCertificateAuthorities,
                 QList<QByteArray>{website.certificatePem()});
        QCOMPARE(configuration.codeSigningAnchors, QList<QByteArray>{developer.certificatePem()});
        QVERIFY(production.trustedCertificateAuthorities.isEmpty());
        QVERIFY(production.codeSigningAnchors.isEmpty());

        QVERIFY_THROWS_EXCEPTION(LaunchError,
                                 LaunchConfiguration::fromFile(folder.filePath(u"absent"_s)));
    }

    void refusesBadCertificateFiles_data() {
        QTest::addColumn<QByteArray>("configuration");
        QTest::addColumn<QByteArray>("certificateFile");
        QTest::addColumn<QString>("message");
        const TestCertificateAuthority authority;
        const QByteArray ca = "{\"trustedCertificateAuthorities\": [\"ca.pem\"]}";
        const QByteArray anchors = "{\"codeSigningAnchors\": [\"ca.pem\"]}";
        QTest::newRow("missing") << ca << QByteArray() << u"could not be read"_s;
        QTest::newRow("key, not certificate")
            << anchors << authority.root().keyPem() << u"holds no PEM certificate"_s;
        QTest::newRow("not PEM") << ca << QByteArray("hello") << u"holds no PEM certificate"_s;
        QTest::newRow("too large")
            << anchors << authority.certificatePem().repeated(2 * 1024 * 1024 / 1000)
            << u"is too large"_s;
        QTest::newRow("empty secret store service")
            << QByteArray("{\"secretStoreService\": \"\"}") << QByteArray() << QString();
        QTest::newRow("not a list") << QByteArray("{\"codeSigningAnchors\": \"ca.pem\"}")
                                    << authority.certificatePem() << QString();
    }

    void refusesBadCertificateFiles() {
        QFETCH(QByteArray, configuration);
        QFETCH(QByteArray, certificateFile);
        QFETCH(QString, message);
        QTemporaryDir folder;
        if (!certificateFile.isEmpty())
            writeFile(folder.filePath(u"ca.pem"_s), certificateFile);
        writeFile(folder.filePath(u"endpoints.json"_s), configuration);
        try {
            LaunchConfiguration::fromFile(folder.filePath(u"endpoints.json"_s));
            QFAIL("the configuration was accepted");
        } catch (const LaunchError& error) {
            // The message names the file, for the developer who reads it on the terminal.
            if (!message.isEmpty()) {
                QVERIFY2(error.description().contains(message), qPrintable(error.description()));
                QVERIFY(error.description().contains(folder.filePath(u"ca.pem"_s)));
            }
        }
    }
};

QTEST_GUILESS_MAIN(ConfigurationTest)
#include "ConfigurationTest.moc"
