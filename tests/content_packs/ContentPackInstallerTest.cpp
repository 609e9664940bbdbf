#include "BundleBuilder.h"
#include "PackFixture.h"
#include "StoreDoubles.h"
#include "TaskOutcome.h"
#include "WebsiteFixture.h"
#include "content_packs/ContentStore.h"
#include "content_packs/LaunchContentPackInstallerError.h"
#include "content_packs/ProductionContentPackInstaller.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTest>
#include <QTimer>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using Manifest = LaunchContentPackManifest;

namespace {

const QString pack = u"aurora-stage"_s;
const QString stillPath = u"/files/aurora-stage/aurora-still.vdasset"_s;

Manifest::Pack packEntry(const QString& id, const QString& version) {
    return {id, u"Aurora Stage"_s, version, std::nullopt};
}

// "octet": eight assets of 1 MB; its second version changes "o3" only.
const QString octet = u"octet"_s;

QString octetPath(int index, int version) {
    return u"/files/octet/o%1-v%2.vdasset"_s.arg(index).arg(version);
}

QByteArray octetBytes(int index, int version) {
    QByteArray bytes(1 << 20, Qt::Uninitialized);
    QRandomGenerator(quint32(index * 10 + version))
        .fillRange(reinterpret_cast<quint32*>(bytes.data()), bytes.size() / 4);
    return bytes;
}

QHash<QString, QByteArray> octetDocuments() {
    QHash<QString, QByteArray> documents;
    QJsonArray assets;
    for (int index = 0; index < 8; ++index) {
        const QString id = u"o%1"_s.arg(index);
        assets.append(QJsonObject{{u"id"_s, id},
                                  {u"name"_s, QString(u"Octet "_s + id)},
                                  {u"category"_s, u"Backgrounds"_s},
                                  {u"version"_s, 1},
                                  {u"contentPackID"_s, octet},
                                  {u"contentPackVersion"_s, u"1"_s},
                                  {u"remoteProtectedAssetURL"_s, octetPath(index, 1)}});
        documents.insert(octetPath(index, 1).mid(1), octetBytes(index, 1));
    }
    documents.insert(octetPath(3, 2).mid(1), octetBytes(3, 2));
    const QJsonObject pack{{u"id"_s, octet}, {u"name"_s, u"Octet"_s}, {u"version"_s, u"1"_s}};
    documents.insert(
        u"creator-backgrounds.json"_s,
        QJsonDocument(QJsonObject{{u"contentPacks"_s, QJsonArray{pack}}, {u"assets"_s, assets}})
            .toJson());
    return documents;
}

Manifest octetUpdate(Manifest manifest) {
    manifest.contentPacks = {{octet, u"Octet"_s, u"2"_s, std::nullopt}};
    for (Manifest::Asset& asset : manifest.assets) {
        asset.contentPackVersion = u"2"_s;
        if (asset.id != u"o3"_s)
            continue;
        const QByteArray bytes = octetBytes(3, 2);
        asset.remoteProtectedAssetURL =
            asset.remoteProtectedAssetURL->resolved(QUrl(octetPath(3, 2)));
        asset.protectedSHA256Hex = QString::fromLatin1(
            QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex());
        asset.fileSizeBytes = bytes.size();
    }
    return manifest;
}

// The file's identity on disk: a hard link has its target's.
std::pair<dev_t, ino_t> inodeOf(const QString& path) {
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {0, 0};
    return {info.st_dev, info.st_ino};
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

    // The sample website with these documents in place of its own.
    void serve(const QHash<QString, QByteArray>& documents) {
        m_installer.reset();
        m_website = std::make_unique<WebsiteFixture>(SampleWebsite::Options{}, documents);
        m_installer = std::make_unique<ProductionContentPackInstaller>(
            m_website->server().makeNetworkAccess());
    }

    QStringList requestedSince(qsizetype count) {
        QStringList paths;
        for (const auto& request : m_website->server().requests().mid(count))
            paths.append(request.path);
        paths.sort();
        return paths;
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
    void anAssetThatCannotBeProvedLeavesTheStoreAsItWas_data() {
        QTest::addColumn<bool>("withoutDigest");
        QTest::addColumn<QString>("message");
        QTest::newRow("no digest")
            << true << u"The server did not provide an integrity value for Aurora Still."_s;
        QTest::newRow("longer than stated")
            << false
            << LaunchContentPackInstallerError::integrityFailure(u"Aurora Still"_s).description();
    }

    void anAssetThatCannotBeProvedLeavesTheStoreAsItWas() {
        QFETCH(bool, withoutDigest);
        QFETCH(QString, message);
        QVERIFY(install(pack, m_website->packManifest()).value);
        const auto before = filesUnder(m_fixture->fallbackStore());
        const int requestsBefore = m_website->server().requestCount(stillPath);
        Manifest manifest = m_website->packManifest();
        manifest.contentPacks = {packEntry(pack, u"2.0"_s)};
        if (withoutDigest)
            manifest.assets[1].protectedSHA256Hex = u""_s;
        else
            manifest.assets[1].fileSizeBytes = 1000;

        const auto outcome = install(pack, manifest);
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->description(), message);
        QCOMPARE(filesUnder(m_fixture->fallbackStore()), before);
        QVERIFY(m_fixture->stagingFolders().isEmpty());
        QCOMPARE(m_website->server().requestCount(stillPath),
                 requestsBefore + (withoutDigest ? 0 : 1));
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

    // A file whose size the manifest leaves out counts once its length is announced, while it
    // arrives. (The store shows what the installer reports: PackFlowsTest; a pack installed
    // through the store: EndToEndTest.)
    void anUnstatedSizeCountsOnceAnnounced() {
        const QByteArray still(200, 'z');
        serve({{stillPath.mid(1), still}});
        // A byte every 5 ms: a second of reports while it arrives.
        HttpsTestServer::Response trickle(200, still, "application/octet-stream");
        trickle.trickleMilliseconds = 5;
        m_website->server().reply(u"GET"_s, stillPath, trickle);
        Manifest manifest = m_website->packManifest();
        manifest.assets[1].fileSizeBytes.reset();
        QList<std::pair<qint64, qint64>> seen;
        TransferControl control;
        control.progress = [&](qint64 received, qint64 expected) {
            seen.append({received, expected});
        };
        QVERIFY(install(pack, manifest, control).value);
        QCOMPARE(seen.first(), (std::pair<qint64, qint64>{0, 48'000}));
        // The thumbnails (1,327 and 1,275 bytes), the preview (6,000) and the asset count.
        const qint64 total = 48'000 + 1'327 + 1'275 + 6'000 + 200;
        QVERIFY(std::any_of(seen.begin(), seen.end(), [total](const auto& progress) {
            return progress.first < total && progress.second == total;
        }));
        QCOMPARE(seen.last(), (std::pair<qint64, qint64>{total, total}));
    }

    // An update fetches only the assets whose digest changed; every other file is the installed
    // one, proven again from disk and linked, unless it no longer proves.
    void updateFetchesOnlyWhatChanged_data() {
        QTest::addColumn<QString>("damage");
        QTest::addColumn<QStringList>("fetched");
        QTest::newRow("intact") << u""_s << QStringList{octetPath(3, 2)};
        QTest::newRow("o5 corrupted")
            << u"corrupted"_s << QStringList{octetPath(3, 2), octetPath(5, 1)};
        QTest::newRow("o5 missing")
            << u"missing"_s << QStringList{octetPath(3, 2), octetPath(5, 1)};
    }

    void updateFetchesOnlyWhatChanged() {
        QFETCH(QString, damage);
        QFETCH(QStringList, fetched);
        serve(octetDocuments());
        const Manifest first = m_website->packManifest();
        QVERIFY(install(octet, first).value);
        const QString packs = m_fixture->fallbackStore() + u"/Packs/octet/"_s;
        QHash<QString, std::pair<dev_t, ino_t>> inodes;
        for (int index = 0; index < 8; ++index)
            inodes.insert(u"o%1"_s.arg(index), inodeOf(packs + u"1/o%1.vdasset"_s.arg(index)));
        QFile damaged(packs + u"1/o5.vdasset"_s);
        if (damage == u"corrupted"_s) {
            QVERIFY(damaged.open(QIODevice::ReadWrite));
            damaged.seek(500'000);
            damaged.write("tampered");
            damaged.close();
        } else if (damage == u"missing"_s) {
            QVERIFY(damaged.remove());
        }

        const qsizetype requests = m_website->server().requests().size();
        QList<qint64> received;
        TransferControl control;
        control.progress = [&](qint64 bytes, qint64) { received.append(bytes); };
        const auto outcome = install(octet, octetUpdate(first), control);
        QVERIFY2(outcome.value, qPrintable(outcome.error ? outcome.error->description() : u""_s));
        QCOMPARE(requestedSince(requests), fetched);
        QVERIFY(std::is_sorted(received.begin(), received.end()));
        QCOMPARE(received.last(), 8 << 20);

        // Version 2 alone, every file the published one, and those not fetched are the installed
        // files themselves.
        QMap<QString, QByteArray> expected;
        for (int index = 0; index < 8; ++index) {
            const QString name = u"o%1.vdasset"_s.arg(index);
            expected.insert(u"2/"_s + name, octetBytes(index, index == 3 ? 2 : 1));
            if (!fetched.contains(octetPath(index, 1)) && index != 3)
                QCOMPARE(inodeOf(packs + u"2/"_s + name), inodes.value(u"o%1"_s.arg(index)));
        }
        QCOMPARE(filesUnder(packs), expected);
        const auto entries = ContentStore::readEntries(m_fixture->fallbackStore());
        QVERIFY(entries);
        QCOMPARE(entries->size(), 8);
        for (const InstalledAsset& entry : *entries)
            QCOMPARE(entry.localProtectedAssetURL,
                     QUrl::fromLocalFile(packs + u"2/"_s + entry.id + u".vdasset"_s));
        QVERIFY(m_fixture->stagingFolders().isEmpty());
    }

    // The first file to fail stops the others, and its error is the one reported, not the
    // "cancelled" of the files it stopped.
    void theFirstFailureStopsTheOtherFiles() {
        serve(octetDocuments());
        m_website->faults().failPath(octetPath(0, 1), 404);
        for (int index = 1; index < 4; ++index)
            m_website->faults().delayPath(octetPath(index, 1), 1000);
        qint64 mostReceived = 0;
        TransferControl control;
        control.progress = [&](qint64 received, qint64) {
            mostReceived = std::max(mostReceived, received);
        };
        const auto outcome = install(octet, m_website->packManifest(), control);
        QVERIFY(outcome.error);
        QCOMPARE(outcome.error->description(),
                 LaunchContentPackInstallerError::rejected(404).description());
        // The slow ones were stopped before a byte arrived, and the rest never asked for.
        QCOMPARE(mostReceived, 0);
        QCOMPARE(m_website->server().requestCount(octetPath(4, 1)), 0);
        QVERIFY(!QFileInfo::exists(m_fixture->fallbackStore() + u"/Packs"_s));
        QVERIFY(m_fixture->stagingFolders().isEmpty());
    }

    // A Cancel at any moment of an update (proving installed files, downloading, just before
    // publishing) ends it with the cancelled error and the store exactly as it was; once
    // publishing has begun the update completes instead.
    void aCancelledUpdateLeavesTheStoreAsItWas() {
        serve(octetDocuments());
        // The changed asset answers late, so that the cancels fall on every part of the update.
        m_website->faults().delayPath(octetPath(3, 2), 150);
        const Manifest first = m_website->packManifest();
        const Manifest update = octetUpdate(first);
        QVERIFY(install(octet, first).value);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(install(octet, update).value);
        const int span = int(clock.elapsed());
        QVERIFY(install(octet, first).value);

        const quint32 seed = 20240611;
        qInfo("cancelling at random moments up to %d ms, seed %u", span, seed);
        QRandomGenerator random(seed);
        int cancelled = 0;
        for (int round = 0; round < 20; ++round) {
            const auto before = filesUnder(m_fixture->fallbackStore());
            TransferControl control;
            control.cancellation = std::make_shared<Cancellation>();
            const int delay = random.bounded(span + 1);
            QTimer::singleShot(delay, control.cancellation.get(), &Cancellation::cancel);
            const auto outcome = install(octet, update, control);
            QVERIFY(m_fixture->stagingFolders().isEmpty());
            if (outcome.value) {
                // Too late: publishing had begun. Back to version 1 for the next round.
                QCOMPARE(installedVersions(), (QHash<QString, QString>{{octet, u"2"_s}}));
                QVERIFY(install(octet, first).value);
                continue;
            }
            QVERIFY2(outcome.error->isUrlError(LaunchError::cancelled),
                     qPrintable(u"after %1 ms: %2"_s.arg(delay).arg(outcome.error->description())));
            QCOMPARE(filesUnder(m_fixture->fallbackStore()), before);
            ++cancelled;
        }
        qInfo("%d of 20 cancels came before publishing", cancelled);
        QVERIFY(cancelled > 0);

        QVERIFY(install(octet, update).value);
        QCOMPARE(installedVersions(), (QHash<QString, QString>{{octet, u"2"_s}}));
        QCOMPARE(
            filesUnder(m_fixture->fallbackStore() + u"/Packs/octet/2"_s).value(u"o3.vdasset"_s),
            octetBytes(3, 2));
    }
};

QTEST_GUILESS_MAIN(ContentPackInstallerTest)
#include "ContentPackInstallerTest.moc"
