#include "BundleBuilder.h"
#include "PackFixture.h"
#include "TaskOutcome.h"
#include "UpdateFixture.h"
#include "WebsiteFixture.h"
#include "content_packs/ContentStore.h"
#include "content_packs/ProductionContentPackInstaller.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QTest>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QString pack = u"aurora-stage"_s;
const QString manifestPath = u"/v1/launch/creator-backgrounds"_s;

QString savedFile(const QString& path, const QByteArray& bytes) {
    writeFile(path, bytes);
    return path;
}

QByteArray sha256Of(const QString& path) {
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result().toHex()
                                                                 : QByteArray();
}

QStringList workItems(const QString& folder) {
    return QDir(folder).entryList({u".vantor-launch-*"_s},
                                  QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

// The transfer child, run to its end or killed after `killAfter` milliseconds.
struct ChildRun {
    bool killed = false;
    int exitCode = -1;
    QByteArray errors;
};

ChildRun runChild(const QStringList& arguments, int killAfter = -1) {
    QProcess child;
    // Pauses between the steps of putting the work in place give each step its share of kills.
    child.start(QStringLiteral(TRANSFER_CHILD), QStringList{u"60"_s} + arguments);
    if (!child.waitForStarted())
        return {};
    ChildRun run;
    if (killAfter >= 0 && !child.waitForFinished(killAfter)) {
        ::kill(pid_t(child.processId()), SIGKILL);
        run.killed = true;
    }
    child.waitForFinished(60000);
    run.exitCode = child.exitStatus() == QProcess::NormalExit ? child.exitCode() : -1;
    run.errors = child.readAllStandardError();
    return run;
}

// A tmpfs of this size mounted over folder while it lives; only root may mount.
class SmallDisk {
public:
    SmallDisk(const QString& folder, qint64 bytes)
        : m_folder(folder) {
        QDir().mkpath(folder);
        m_mounted =
            QProcess::execute(u"mount"_s, {u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=%1"_s.arg(bytes),
                                           u"tmpfs"_s, folder}) == 0;
    }
    ~SmallDisk() {
        if (m_mounted)
            QProcess::execute(u"umount"_s, {u"-l"_s, m_folder});
    }
    bool mounted() const { return m_mounted; }

    // Fills the disk until exactly `leave` bytes (whole pages) stay free.
    void fillLeaving(qint64 leave) const {
        struct statvfs status {};
        ::statvfs(QFile::encodeName(m_folder).constData(), &status);
        const qint64 available = qint64(status.f_bavail) * qint64(status.f_frsize);
        QFile filler(m_folder + u"/filler"_s);
        filler.open(QIODevice::Append);
        filler.write(QByteArray(std::max<qint64>(available - leave, 0), 'f'));
    }

private:
    QString m_folder;
    bool m_mounted = false;
};

} // namespace

// What a kill at any instant, or a full disk at any write, leaves of the content store and the
// installed Director: always the old or the new, whole, and nothing of the launcher's own once
// the next run is done. The work runs in a child process that really dies.
class InterruptionTest : public QObject {
    Q_OBJECT

    // The pack manifest of the sample website with the pack's version set to `version`.
    static QString manifestFile(WebsiteFixture& website, const QString& folder,
                                const QString& version) {
        QJsonObject document =
            QJsonDocument::fromJson(website.get(manifestPath, website.signIn().accessToken).body)
                .object();
        QJsonArray packs = document.value(u"contentPacks"_s).toArray();
        for (qsizetype index = 0; index < packs.size(); ++index) {
            QJsonObject entry = packs[index].toObject();
            if (entry.value(u"id"_s).toString() == pack)
                entry.insert(u"version"_s, version);
            packs[index] = entry;
        }
        document.insert(u"contentPacks"_s, packs);
        return savedFile(folder + u"/manifest-"_s + version + u".json"_s,
                         QJsonDocument(document).toJson());
    }

    // The manifest parses, names only whole files whose digests it records, all in one version
    // folder; every folder of the pack is whole.
    static void checkStoreIsWhole(const QString& store, const QStringList& expectedFiles) {
        if (!QFile::exists(store + u"/catalog.json"_s))
            return;
        const auto entries = ContentStore::readEntries(store);
        QVERIFY2(entries, "catalog.json does not parse");
        QStringList folders;
        for (const InstalledAsset& entry : *entries) {
            if (entry.contentPackID != pack)
                continue;
            const QString asset = entry.localProtectedAssetURL->toLocalFile();
            QCOMPARE(sha256Of(asset), entry.protectedSHA256Hex->toLatin1());
            for (const auto& url : {entry.localThumbnailURL, entry.localPreviewVideoURL})
                QVERIFY(!url || QFile::exists(url->toLocalFile()));
            folders.append(QFileInfo(asset).absolutePath());
        }
        folders.removeDuplicates();
        QVERIFY(folders.size() <= 1);
        const QDir packFolder(store + u"/Packs/"_s + pack);
        for (const QString& version : packFolder.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
            QCOMPARE(QDir(packFolder.filePath(version)).entryList(QDir::Files), expectedFiles);
    }

private Q_SLOTS:
    void killedPackInstallsLeaveOldOrNew() {
        PackFixture home;
        WebsiteFixture website;
        const QString authority = savedFile(home.filePath(u"authority.pem"_s),
                                            website.server().authority().certificatePem());
        const QString store = home.fallbackStore();
        const auto arguments = [&](const QString& version) {
            return QStringList{u"pack"_s, manifestFile(website, home.path(), version), pack,
                               authority};
        };

        QElapsedTimer clock;
        clock.start();
        QCOMPARE(runChild(arguments(u"1.2"_s)).exitCode, 0);
        const qint64 duration = clock.elapsed();
        const QStringList expectedFiles =
            QDir(store + u"/Packs/aurora-stage/1.2"_s).entryList(QDir::Files);
        QVERIFY(expectedFiles.size() >= 4);

        QString installed = u"1.2"_s;
        for (int round = 0; round < 24; ++round) {
            // Mostly a new version (the old folder goes), sometimes the same one (exchanged).
            const QString version =
                round % 3 == 2 ? installed : (installed == u"1.2"_s ? u"2.0"_s : u"1.2"_s);
            const int moment = int(QRandomGenerator::global()->bounded(duration * 13 / 10 + 1));
            runChild(arguments(version), moment);
            checkStoreIsWhole(store, expectedFiles);
            if (QTest::currentTestFailed())
                QFAIL(qPrintable(
                    u"the store was not whole after a kill at %1 ms of round %2"_s.arg(moment).arg(
                        round)));

            const ChildRun next = runChild(arguments(version));
            QVERIFY2(next.exitCode == 0, next.errors.constData());
            installed = version;
            checkStoreIsWhole(store, expectedFiles);
            QCOMPARE(workItems(store), QStringList());
            QCOMPARE(
                QDir(store + u"/Packs/aurora-stage"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
                QStringList{version});
        }
    }

    void killedUpdatesLeaveAWholeBundle() {
        UpdateFixture fixture;
        fixture.publishBundle(fixture.buildRelease(UpdateFixture::releaseSpec()));
        const AvailableApplicationRelease release = fixture.release();
        const QString installed = fixture.installed.toLocalFile();
        const QString pristine = fixture.root.filePath(u"pristine/Vantor Director.app"_s);
        QDir().mkpath(QFileInfo(pristine).path());
        QCOMPARE(QProcess::execute(u"cp"_s, {u"-a"_s, installed, pristine}), 0);
        const QStringList arguments{u"update"_s,
                                    installed,
                                    release.downloadURL->toString(),
                                    release.version,
                                    release.build.value_or(QString()),
                                    savedFile(fixture.root.filePath(u"authority.pem"_s),
                                              fixture.server.authority().certificatePem()),
                                    savedFile(fixture.root.filePath(u"anchor.pem"_s),
                                              fixture.signing.authority.certificatePem()),
                                    UpdateFixture::directorID};
        const auto restore = [&] {
            QDir(installed).removeRecursively();
            return QProcess::execute(u"cp"_s, {u"-a"_s, pristine, installed}) == 0;
        };
        const CmsCodeSignature signature(QList{fixture.signing.authority.certificatePem()}, false);

        QElapsedTimer clock;
        clock.start();
        QCOMPARE(runChild(arguments).exitCode, 0);
        const qint64 duration = clock.elapsed();
        QCOMPARE(fixture.installedVersion(), u"2.5.0"_s);

        for (int round = 0; round < 24; ++round) {
            QVERIFY(restore());
            const int moment = int(QRandomGenerator::global()->bounded(duration * 13 / 10 + 1));
            runChild(arguments, moment);
            const QString version = fixture.installedVersion();
            QVERIFY2(version == u"2.4.1"_s || version == u"2.5.0"_s,
                     qPrintable(u"kill at %1 ms left version '%2'"_s.arg(moment).arg(version)));
            QVERIFY2(signature.signingIdentity(installed),
                     qPrintable(u"kill at %1 ms left a damaged bundle"_s.arg(moment)));

            const ChildRun next = runChild(arguments);
            QVERIFY2(next.exitCode == 0, next.errors.constData());
            QCOMPARE(fixture.installedVersion(), u"2.5.0"_s);
            QCOMPARE(fixture.leftovers(), QStringList());
        }
    }

    // No room for what a transfer needs: a clear message, nothing fetched or nothing kept, and the
    // store and the bundle exactly as they were.
    void fullDiskChangesNothing_data() {
        QTest::addColumn<QString>("work");
        QTest::addColumn<QString>("expected");
        QTest::newRow("pack: no room for the assets")
            << u"assets"_s << u"There is not enough free space in "_s;
        QTest::newRow("pack: room for the assets, none for the manifest")
            << u"manifest"_s << u"No space left on device"_s;
        QTest::newRow("pack: sizes not stated, disk full while downloading")
            << u"unstated"_s << u"No space left on device"_s;
        QTest::newRow("update: no room for the download")
            << u"download"_s << u"There is not enough free space in "_s;
        QTest::newRow("update: endless body")
            << u"endless"_s << u"There is not enough free space in "_s;
    }

    void fullDiskChangesNothing() {
        QFETCH(QString, work);
        QFETCH(QString, expected);
        if (::geteuid() != 0)
            QSKIP("Mounting a small file system needs root; CI runs as root.");
        StreamingDownload::Limits noMargin;
        noMargin.spaceMarginBytes = 0;

        if (work == u"assets"_s || work == u"manifest"_s || work == u"unstated"_s) {
            PackFixture home;
            SmallDisk disk(home.filePath(u".local/share"_s), 1 << 20);
            QVERIFY(disk.mounted());
            WebsiteFixture website;
            ProductionContentPackInstaller installer(website.server().makeNetworkAccess(),
                                                     noMargin);
            QVERIFY(
                outcomeOf(installer.install(u"harbour-lights"_s, website.packManifest(), {}), 30000)
                    .value);
            const QString store = home.fallbackStore();
            const auto before = filesUnder(store);

            LaunchContentPackManifest manifest = website.packManifest();
            // What the new pack's files take on this disk, in whole pages.
            qint64 pages = 0;
            for (const qint64 size : {48000, 1327, 6000, 24000, 1275})
                pages += (size + 4095) / 4096;
            if (work == u"unstated"_s) {
                for (auto& asset : manifest.assets)
                    asset.fileSizeBytes.reset();
            }
            disk.fillLeaving(work == u"manifest"_s ? pages * 4096 : 8 * 4096);
            const int requests =
                website.server().requestCount(u"/files/aurora-stage/aurora-curtain.vdasset"_s);
            const auto outcome = outcomeOf(installer.install(pack, manifest, {}), 30000);
            QVERIFY(outcome.error);
            QVERIFY2(outcome.error->description().contains(expected),
                     qPrintable(outcome.error->description()));
            if (work == u"assets"_s) {
                QVERIFY(outcome.error->description().contains(QDir::toNativeSeparators(store)));
                QCOMPARE(
                    website.server().requestCount(u"/files/aurora-stage/aurora-curtain.vdasset"_s),
                    requests);
            }
            QCOMPARE(filesUnder(store), before);
            QCOMPARE(workItems(store), QStringList());
            return;
        }

        UpdateFixture fixture;
        fixture.limits = noMargin;
        fixture.limits.stallMilliseconds = 5000;
        const QMap<QString, QByteArray> before = filesUnder(fixture.applications);
        QCOMPARE(QProcess::execute(
                     u"cp"_s, {u"-a"_s, fixture.applications, fixture.root.filePath(u"saved"_s)}),
                 0);
        SmallDisk disk(fixture.applications, 8 << 20);
        QVERIFY(disk.mounted());
        QCOMPARE(
            QProcess::execute(u"sh"_s, {u"-c"_s, u"cp -a \"$0\"/. \"$1\""_s,
                                        fixture.root.filePath(u"saved"_s), fixture.applications}),
            0);
        QCOMPARE(filesUnder(fixture.applications), before);
        fixture.publishBundle(fixture.buildRelease(UpdateFixture::releaseSpec()));
        if (work == u"endless"_s) {
            HttpsTestServer::Response endless(200, {}, "application/zip");
            endless.endless = true;
            fixture.server.reply(u"GET"_s, UpdateFixture::downloadPath, endless);
        } else {
            disk.fillLeaving(QFileInfo(fixture.root.filePath(u"published.zip"_s)).size() / 2);
        }
        const auto updater = fixture.makeUpdater();
        const auto outcome = outcomeOf(
            updater->installUpdate(fixture.release(), fixture.installed,
                                   UpdateFixture::configuration().director.bundleIdentifiers, {}),
            60000);
        QVERIFY(outcome.error);
        QVERIFY2(outcome.error->description().contains(expected),
                 qPrintable(outcome.error->description()));
        QVERIFY(outcome.error->description().contains(fixture.applications));
        QMap<QString, QByteArray> after = filesUnder(fixture.applications);
        after.remove(u"filler"_s);
        QCOMPARE(after, before);
        QCOMPARE(fixture.leftovers(), QStringList());
    }
};

QTEST_GUILESS_MAIN(InterruptionTest)
#include "InterruptionTest.moc"
