#include "BundleBuilder.h"
#include "PackFixture.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "WebsiteFixture.h"
#include "content_packs/ContentStore.h"
#include "content_packs/LaunchContentPackInstallerError.h"
#include "content_packs/ProductionContentPackInstaller.h"

#include <QTest>

using namespace Qt::StringLiterals;
using Launch::PackInstallation;
using Manifest = LaunchContentPackManifest;

namespace {

const QString pack = u"aurora-stage"_s;
const QString stillPath = u"/files/aurora-stage/aurora-still.vdasset"_s;

Manifest::Pack packEntry(const QString& id, const QString& version) {
    return {id, u"Aurora Stage"_s, version, std::nullopt};
}

} // namespace

// The installer against the sample website, into a content store in a throwaway home. The pack
// "aurora-stage" holds "Aurora Curtain" (with thumbnail and preview) and "Aurora Still".
class ContentPackInstallerTest : public QObject {
    Q_OBJECT

    std::unique_ptr<PackFixture> m_fixture;
    std::unique_ptr<WebsiteFixture> m_website;
    std::unique_ptr<ProductionContentPackInstaller> m_installer;

    TaskOutcome<bool> install(const QString& packID, Manifest manifest,
                              TransferControl control = {}) {
        return outcomeOf(m_installer->install(packID, std::move(manifest), std::move(control)),
                         30000);
    }

    QHash<QString, QString> installedVersions() {
        return outcomeOf(m_installer->installedPackVersions())
            .value.value_or(QHash<QString, QString>{{u"failed"_s, u""_s}});
    }

private Q_SLOTS:
    // The installer's connections go first: open ones would hold the server's stop.
    void cleanup() {
        m_installer.reset();
        m_website.reset();
        m_fixture.reset();
    }

    void init() {
        m_fixture = std::make_unique<PackFixture>();
        m_website = std::make_unique<WebsiteFixture>();
        m_installer = std::make_unique<ProductionContentPackInstaller>(
            m_website->server().makeNetworkAccess());
    }

    void installsVerifiedFilesAndRecordsThem() {
        Manifest manifest = m_website->packManifest();
        // Digests in upper case match too.
        manifest.assets[1].protectedSHA256Hex = manifest.assets[1].protectedSHA256Hex->toUpper();
        manifest.assets[1].remoteThumbnailURL.reset();
        QList<std::pair<qint64, qint64>> reports;
        TransferControl control;
        control.progress = [&](qint64 received, qint64 expected) {
            reports.append({received, expected});
        };
        const auto outcome = install(pack, manifest, control);
        QVERIFY2(outcome.value, qPrintable(outcome.error ? outcome.error->description() : u""_s));

        const QString version = m_fixture->fallbackStore() + u"/Packs/aurora-stage/1.2/"_s;
        QCOMPARE(QFile(version + u"aurora-curtain.vdasset"_s).size(), 48000);
        QVERIFY(QFile::exists(version + u"aurora-curtain-thumbnail.jpg"_s));
        QVERIFY(QFile::exists(version + u"aurora-curtain-preview.mp4"_s));
        QCOMPARE(QFile(version + u"aurora-still.vdasset"_s).size(), 24000);
        QVERIFY(m_fixture->stagingFolders().isEmpty());

        const auto entries = ContentStore::readEntries(m_fixture->fallbackStore());
        QVERIFY(entries);
        QCOMPARE(entries->size(), 2);
        const InstalledAsset& first = entries->at(0);
        QCOMPARE(first.name, u"Aurora Curtain"_s);
        QCOMPARE(first.localProtectedAssetURL,
                 QUrl::fromLocalFile(version + u"aurora-curtain.vdasset"_s));
        QCOMPARE(first.localThumbnailURL,
                 QUrl::fromLocalFile(version + u"aurora-curtain-thumbnail.jpg"_s));
        QCOMPARE(first.installedContentPackVersion, FlexibleVersion{u"1.2"_s});
        QVERIFY(!entries->at(1).localThumbnailURL);
        QCOMPARE(installedVersions(), (QHash<QString, QString>{{pack, u"1.2"_s}}));

        QVERIFY(!reports.isEmpty());
        QCOMPARE(reports.first(), (std::pair<qint64, qint64>{0, 72'000}));

        // The same version again: one folder, one set of entries.
        QVERIFY(install(pack, manifest).value);
        QCOMPARE(QDir(m_fixture->fallbackStore() + u"/Packs/aurora-stage"_s)
                     .entryList(QDir::Dirs | QDir::NoDotAndDotDot),
                 QStringList{u"1.2"_s});
        QCOMPARE(ContentStore::readEntries(m_fixture->fallbackStore())->size(), 2);
    }

    // An asset without a digest is refused before its file is fetched, one longer than stated as
    // it arrives, and the installed version stays as it was. (Failures while downloading:
    // EndToEndTest::faultsChangeNothing.)
    void anAssetThatCannotBeProvedLeavesTheStoreAsItWas() {
        QVERIFY(install(pack, m_website->packManifest()).value);
        const auto before = filesUnder(m_fixture->fallbackStore());
        Manifest manifest = m_website->packManifest();
        manifest.contentPacks = {packEntry(pack, u"2.0"_s)};
        manifest.assets[1].protectedSHA256Hex = u""_s;
        const int requestsBefore = m_website->server().requestCount(stillPath);

        const auto outcome = install(pack, manifest);
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->description(),
                 u"The server did not provide an integrity value for Aurora Still."_s);
        QCOMPARE(filesUnder(m_fixture->fallbackStore()), before);
        QVERIFY(m_fixture->stagingFolders().isEmpty());
        QCOMPARE(m_website->server().requestCount(stillPath), requestsBefore);

        // A file longer than the manifest states cannot be the asset: refused as it arrives.
        manifest = m_website->packManifest();
        manifest.contentPacks = {packEntry(pack, u"2.0"_s)};
        manifest.assets[1].fileSizeBytes = 1000;
        const auto longer = install(pack, manifest);
        QVERIFY(longer.error);
        QCOMPARE(
            longer.error->description(),
            LaunchContentPackInstallerError::integrityFailure(u"Aurora Still"_s).description());
        QCOMPARE(filesUnder(m_fixture->fallbackStore()), before);
        QVERIFY(m_fixture->stagingFolders().isEmpty());
    }

    void refusesPacksItCannotPlace_data() {
        QTest::addColumn<QString>("packID");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("assetID");
        QTest::addColumn<QString>("message");
        const QString unusable = LaunchContentPackInstallerError::unusableName().description();
        const QString unavailable =
            LaunchContentPackInstallerError::packUnavailable().description();
        QTest::newRow("version ..") << pack << u".."_s << u"a1"_s << unusable;
        QTest::newRow("empty version") << pack << u""_s << u"a1"_s << unusable;
        QTest::newRow("asset ../x") << pack << u"1.0"_s << u"../x"_s << unusable;
        QTest::newRow("asset with NUL")
            << pack << u"1.0"_s << (u"a"_s + QChar(0) + u"b"_s) << unusable;
        QTest::newRow("not in the manifest") << u"other"_s << u"1.0"_s << u"a1"_s << unavailable;
        QTest::newRow("pack id differs in case")
            << pack.toUpper() << u"1.0"_s << u"a1"_s << unavailable;
    }

    void refusesPacksItCannotPlace() {
        QFETCH(QString, packID);
        QFETCH(QString, version);
        QFETCH(QString, assetID);
        QFETCH(QString, message);
        Manifest manifest = m_website->packManifest();
        QVERIFY(install(pack, manifest).value);
        const auto before = filesUnder(m_fixture->path());
        const int requestsBefore = m_website->server().requests().size();

        manifest.contentPacks = {packEntry(pack, version), packEntry(pack.toUpper(), version)};
        manifest.assets = {manifest.assets[0]};
        manifest.assets[0].id = assetID;
        const auto outcome = install(packID, manifest);
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->description(), message);
        QCOMPARE(filesUnder(m_fixture->path()), before);
        QCOMPARE(m_website->server().requests().size(), requestsBefore);
    }

    void entriesWithoutPackVersionLeaveThePackNotInstalled() {
        Manifest manifest = m_website->packManifest();
        for (Manifest::Asset& asset : manifest.assets)
            asset.contentPackVersion.reset();
        QVERIFY(install(pack, manifest).value);
        QCOMPARE(ContentStore::readEntries(m_fixture->fallbackStore())->size(), 2);
        QVERIFY(installedVersions().isEmpty());
    }

    // A pack of the website installs through the store, which follows its progress: a large
    // asset that answers late shows in it once it announced its length.
    void storeInstallsAPublishedPack() {
        m_website = std::make_unique<WebsiteFixture>(
            SampleWebsite::Options{},
            QHash<QString, QByteArray>{
                {u"files/aurora-stage/aurora-still.vdasset"_s, QByteArray(3'000'000, 'z')}});
        m_website->faults().delayPath(stillPath, 300);
        StoreFixture fixture;
        const WebsiteAccount customer{u"c1"_s, u"Ana"_s, u"ana@example.com"_s};
        fixture.snapshotCache->stored = LaunchAccountSnapshot{1, customer, fixture.clock};
        fixture.answerStartUp({fixture.director(), fixture.creator()},
                              {makePack(pack, u"Aurora Stage"_s, {}, u"1.2"_s)}, customer);
        LaunchCollaborators collaborators = fixture.collaborators();
        collaborators.contentPackInstaller = std::make_shared<ProductionContentPackInstaller>(
            m_website->server().makeNetworkAccess());
        LaunchStore store(collaborators);
        QVERIFY(finishes(store.start()));

        Manifest manifest = m_website->packManifest();
        manifest.assets[1].fileSizeBytes.reset();
        fixture.accountProvider->manifestCalls.answerWith(manifest);
        QList<QVariantMap> seen;
        connect(&store, &LaunchStore::packProgressChanged, this,
                [&] { seen.append(store.packProgress()); });
        QVERIFY(finishes(store.installPack(pack), 30000));
        QCOMPARE(store.message(), u"Aurora Stage is installed and ready in Vantor Creator."_s);
        QCOMPARE(store.packs()[0].installation, PackInstallation::installed);
        QVERIFY(store.packProgress().isEmpty());
        const QVariantMap first = seen.first().value(pack).toMap();
        QCOMPARE(first.value(u"received"_s).toLongLong(), 0);
        QCOMPARE(first.value(u"expected"_s).toLongLong(), 48'000);
        // The thumbnails (1,327 and 1,275 bytes) and the preview (6,000) count once they arrive.
        QVERIFY(std::any_of(seen.begin(), seen.end(), [](const QVariantMap& progress) {
            const QVariantMap aurora = progress.value(pack).toMap();
            return aurora.value(u"received"_s).toLongLong() > 56'602 &&
                   aurora.value(u"expected"_s).toLongLong() == 3'056'602;
        }));
    }
};

QTEST_GUILESS_MAIN(ContentPackInstallerTest)
#include "ContentPackInstallerTest.moc"
