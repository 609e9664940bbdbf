#include "content_packs/ProductionContentPackInstaller.h"

#include "content_packs/ContentStore.h"
#include "content_packs/LaunchContentPackInstallerError.h"
#include "foundation/FileSafety.h"
#include "foundation/WorkFolder.h"
#include "foundation/Worker.h"
#include "platform/FileExchange.h"

#include <QCoroFuture>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSet>
#include <QtConcurrent>
#include <cerrno>
#include <cstdio>

using namespace Qt::StringLiterals;
using Asset = LaunchContentPackManifest::Asset;

namespace {

// Adds up the bytes of every file of one install, however many download at once, and passes
// the total on a few times a second.
class ProgressMeter {
public:
    ProgressMeter(std::function<void(qint64, qint64)> report, qint64 statedBytes)
        : m_report(std::move(report))
        , m_expected(statedBytes) {
        m_clock.start();
        if (m_report)
            m_report(0, m_expected);
    }

    // One download: its stated size (0 when unknown) is replaced by its announced length, and
    // what it receives adds to the total.
    StreamingDownload::Options::Progress forDownload(qint64 statedBytes) {
        if (!m_report)
            return {};
        return [this, statedBytes, counted = false, seen = qint64(0)](qint64 received,
                                                                      qint64 length) mutable {
            if (!counted && length >= 0) {
                m_expected += length - statedBytes;
                counted = true;
            }
            m_received += received - seen;
            seen = received;
            report(false);
        };
    }
    void finished() { report(true); }

private:
    void report(bool now) {
        if (!m_report || (!now && m_clock.elapsed() < 250))
            return;
        m_clock.restart();
        m_report(m_received, std::max(m_expected, m_received));
    }

    std::function<void(qint64, qint64)> m_report;
    QElapsedTimer m_clock;
    qint64 m_expected;
    qint64 m_received = 0;
};

std::optional<QString> pathExtension(const QUrl& url) {
    const QString suffix = QFileInfo(url.path()).suffix();
    return suffix.isEmpty() ? std::nullopt : std::optional<QString>(suffix);
}

[[noreturn]] void failMove(const QString& what, int error) {
    throw LaunchError::file(u"%1: %2"_s.arg(what, FileSafety::errorText(error)));
}

bool renamed(const QString& from, const QString& to) {
    return ::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

// Steps that only touch the disk: the staged folder becomes the pack's version folder and the
// manifest learns its entries. A failure before the manifest is written puts the store back as it
// was. Runs on a worker.
using Step = ProductionContentPackInstaller::Step;

void publish(const WorkFolder& staging, const QString& store, const QString& packFolder,
             const QString& versionFolder, const QString& packID, QList<InstalledAsset> entries,
             const std::function<void(Step)>& checkpoint) {
    const auto reached = [&](Step step) {
        if (checkpoint)
            checkpoint(step);
    };
    reached(Step::staged);
    const QString parent = QDir(QDir(store).filePath(u"Packs"_s)).filePath(packFolder);
    const QString destination = QDir(parent).filePath(versionFolder);
    if (!QDir().mkpath(parent))
        failMove(u"The Content Pack folder could not be created"_s, errno);

    // The same version again: the new files take the folder's place in one step, and the old
    // ones wait in the work folder's place until the manifest is written.
    enum class Published { renamed, exchanged, movedAside } how = Published::renamed;
    const QString aside = staging.sibling(u"-replaced"_s);
    const QFileInfo existing(destination);
    if (existing.isDir() && !existing.isSymLink() &&
        FileExchange::exchange(staging.path(), destination) == 0) {
        how = Published::exchanged;
    } else if (existing.exists() || existing.isSymLink()) {
        // No exchange on this file system, or not a folder: the old entry steps aside first.
        if (!renamed(destination, aside))
            failMove(u"The previous Content Pack files could not be moved aside"_s, errno);
        how = Published::movedAside;
    }
    if (how != Published::exchanged && !renamed(staging.path(), destination)) {
        const int error = errno;
        if (how == Published::movedAside)
            renamed(aside, destination);
        failMove(u"The Content Pack could not be moved into place"_s, error);
    }

    reached(Step::movedIntoPlace);

    for (InstalledAsset& entry : entries) {
        entry.localThumbnailURL =
            ContentStore::rebase(entry.localThumbnailURL, staging.path(), destination);
        entry.localPreviewVideoURL =
            ContentStore::rebase(entry.localPreviewVideoURL, staging.path(), destination);
        entry.localProtectedAssetURL =
            ContentStore::rebase(entry.localProtectedAssetURL, staging.path(), destination);
    }
    try {
        ContentStore::replacePackEntries(store, packID, entries);
    } catch (...) {
        // The manifest still names the old files: put them back where it says they are.
        if (how == Published::exchanged) {
            FileExchange::exchange(staging.path(), destination);
        } else {
            renamed(destination, staging.path());
            if (how == Published::movedAside)
                renamed(aside, destination);
        }
        throw;
    }
    reached(Step::manifestWritten);

    // Only now that the manifest names the new files do the pack's other version folders go: each
    // leaves the pack folder in one rename, into the work folder's name (which a later sweep also
    // takes), and is removed with it.
    int index = 0;
    for (const QString& name : QDir(parent).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (name != versionFolder)
            renamed(QDir(parent).filePath(name),
                    staging.sibling(u"-old-"_s + QString::number(++index)));
    }
    reached(Step::oldVersionsMoved);
}
InstalledAsset entryFor(const Asset& asset) {
    InstalledAsset entry;
    entry.id = asset.id;
    entry.name = asset.name;
    entry.category = asset.category;
    entry.tags = asset.tags;
    entry.version = asset.version;
    entry.installedVersion = asset.version;
    entry.contentPackID = asset.contentPackID;
    entry.contentPackName = asset.contentPackName;
    if (asset.contentPackVersion) {
        entry.contentPackVersion = FlexibleVersion{*asset.contentPackVersion};
        entry.installedContentPackVersion = FlexibleVersion{*asset.contentPackVersion};
    }
    entry.mediaType = asset.mediaType;
    entry.originalFileExtension = asset.originalFileExtension;
    entry.remoteVideoURL = asset.remoteVideoURL;
    entry.remoteImageURL = asset.remoteImageURL;
    entry.remoteThumbnailURL = asset.remoteThumbnailURL;
    entry.remotePreviewVideoURL = asset.remotePreviewVideoURL;
    entry.remoteProtectedAssetURL = asset.remoteProtectedAssetURL;
    entry.protectedSHA256Hex = asset.protectedSHA256Hex;
    entry.fileSizeBytes = asset.fileSizeBytes;
    entry.sha256Hex = asset.sha256Hex;
    entry.durationSeconds = asset.durationSeconds;
    return entry;
}

StreamingDownload::Options assetDownload(StreamingDownload::Limits limits, const Asset& asset,
                                         bool proved, StreamingDownload::Options::Progress progress,
                                         std::shared_ptr<Cancellation> cancellation) {
    StreamingDownload::Options options;
    options.hash = proved;
    options.durable = true;
    options.limits = limits;
    options.progress = std::move(progress);
    options.cancellation = std::move(cancellation);
    options.refused = [](int status) { return LaunchContentPackInstallerError::rejected(status); };
    if (proved && asset.fileSizeBytes && *asset.fileSizeBytes >= 0) {
        // More bytes than the manifest states cannot prove the asset; stop at once.
        options.maximumBytes = std::max<qint64>(*asset.fileSizeBytes, 1);
        options.tooLarge = [name = asset.name] {
            return LaunchContentPackInstallerError::integrityFailure(name);
        };
    }
    return options;
}

// Files of the pack that download at once: enough to keep the connection busy between the
// worker's writes, few enough that memory stays flat.
constexpr int concurrentDownloads = 4;

// One file of the pack and where it is staged.
struct StagedFile {
    const Asset* asset = nullptr;
    QUrl url;
    QString path;
    // The protected asset, proven against its published digest; thumbnails and previews have none.
    bool proved = false;
    qint64 statedBytes = 0;
};

// What every lane of one install shares: the files still to stage, and the first failure, which
// cancels the others.
struct Staging {
    std::shared_ptr<QNetworkAccessManager> network;
    StreamingDownload::Limits limits;
    std::vector<StagedFile> files;
    std::size_t next = 0;
    std::shared_ptr<Cancellation> cancellation;
    ProgressMeter* meter = nullptr;
    std::exception_ptr failure;
};

QCoro::Task<> stageFile(Staging& staging, const StagedFile& file) {
    const Asset& asset = *file.asset;
    const QString expected = file.proved ? asset.protectedSHA256Hex->toLower() : QString();
    const auto options =
        assetDownload(staging.limits, asset, file.proved,
                      staging.meter->forDownload(file.statedBytes), staging.cancellation);
    const auto fetched =
        co_await StreamingDownload::fetch(staging.network, file.url, file.path, options);
    if (file.proved && fetched.sha256 != expected)
        throw LaunchContentPackInstallerError::integrityFailure(asset.name);
}

// Takes the next file until none is left or one has failed. The first failure is kept and
// cancels the other lanes, whose own "cancelled" then says nothing new.
QCoro::Task<> stageLane(Staging& staging) {
    while (!staging.failure && staging.next < staging.files.size()) {
        const StagedFile& file = staging.files[staging.next++];
        try {
            co_await stageFile(staging, file);
        } catch (...) {
            if (!staging.failure) {
                staging.failure = std::current_exception();
                staging.cancellation->cancel();
            }
        }
    }
}

// Every file of the pack and its entry. Throws when an asset cannot be proved, or when two files
// would take one name (a download must never write into another file).
std::pair<std::vector<StagedFile>, QList<InstalledAsset>>
planFiles(const std::vector<Asset>& assets, const QString& staging) {
    std::vector<StagedFile> files;
    QList<InstalledAsset> entries;
    const QDir folder(staging);
    // A thumbnail or preview: nothing publishes its digest, so it is always downloaded.
    const auto extraFile = [&](const Asset& asset, const QUrl& url, const QString& name) {
        StagedFile file;
        file.asset = &asset;
        file.url = url;
        file.path = folder.filePath(name);
        return file;
    };
    for (const Asset& asset : assets) {
        if (!asset.remoteProtectedAssetURL || !asset.protectedSHA256Hex ||
            asset.protectedSHA256Hex->isEmpty())
            throw LaunchContentPackInstallerError::missingIntegrity(asset.name);
    }
    for (const Asset& asset : assets) {
        InstalledAsset entry = entryFor(asset);
        files.push_back({.asset = &asset,
                         .url = *asset.remoteProtectedAssetURL,
                         .path = folder.filePath(asset.id + u".vdasset"_s),
                         .proved = true,
                         .statedBytes = std::max<qint64>(asset.fileSizeBytes.value_or(0), 0)});
        entry.localProtectedAssetURL = QUrl::fromLocalFile(files.back().path);
        if (asset.remoteThumbnailURL) {
            files.push_back(
                extraFile(asset, *asset.remoteThumbnailURL, asset.id + u"-thumbnail.jpg"_s));
            entry.localThumbnailURL = QUrl::fromLocalFile(files.back().path);
        }
        if (asset.remotePreviewVideoURL) {
            const QString extension =
                pathExtension(*asset.remotePreviewVideoURL).value_or(u"mp4"_s);
            files.push_back(extraFile(asset, *asset.remotePreviewVideoURL,
                                      asset.id + u"-preview."_s + extension));
            entry.localPreviewVideoURL = QUrl::fromLocalFile(files.back().path);
        }
        entries.append(std::move(entry));
    }
    QSet<QString> names;
    for (const StagedFile& file : files) {
        if (!ContentStore::isSafeComponent(QFileInfo(file.path).fileName()) ||
            names.contains(file.path))
            throw LaunchContentPackInstallerError::unusableName();
        names.insert(file.path);
    }
    return {std::move(files), std::move(entries)};
}

QCoro::Task<QList<InstalledAsset>> stageAssets(std::shared_ptr<QNetworkAccessManager> network,
                                               StreamingDownload::Limits limits,
                                               const std::vector<Asset>& assets, QString staging,
                                               const TransferControl& control) {
    auto [files, entries] = planFiles(assets, staging);
    qint64 statedBytes = 0;
    for (const StagedFile& file : files)
        statedBytes += file.statedBytes;
    ProgressMeter meter(control.progress, statedBytes);

    // The lanes' own cancellation: the caller's Cancel reaches it, and so does the first failure.
    auto cancellation = std::make_shared<Cancellation>();
    if (control.cancellation)
        QObject::connect(control.cancellation.get(), &Cancellation::cancelled, cancellation.get(),
                         &Cancellation::cancel);
    if (control.isCancelled())
        cancellation->cancel();

    Staging shared{std::move(network), limits, std::move(files), 0, cancellation, &meter, {}};
    std::vector<QCoro::Task<>> lanes;
    const std::size_t laneCount =
        std::min<std::size_t>(concurrentDownloads, std::max<std::size_t>(shared.files.size(), 1));
    for (std::size_t lane = 0; lane < laneCount; ++lane)
        lanes.push_back(stageLane(shared));
    // Every lane ends before the work folder may go: none writes into it any more.
    for (QCoro::Task<>& lane : lanes)
        co_await std::move(lane);
    if (shared.failure)
        std::rethrow_exception(shared.failure);
    meter.finished();
    co_return std::move(entries);
}

} // namespace

ProductionContentPackInstaller::ProductionContentPackInstaller(
    std::shared_ptr<QNetworkAccessManager> network, StreamingDownload::Limits limits,
    std::function<void(Step)> checkpoint)
    : m_network(std::move(network))
    , m_limits(limits)
    , m_checkpoint(std::move(checkpoint)) {}

QCoro::Task<> ProductionContentPackInstaller::install(QString packID,
                                                      LaunchContentPackManifest manifest,
                                                      TransferControl control) {
    const auto pack = std::find_if(
        manifest.contentPacks.begin(), manifest.contentPacks.end(),
        [&](const LaunchContentPackManifest::Pack& entry) { return entry.id == packID; });
    if (pack == manifest.contentPacks.end())
        throw LaunchContentPackInstallerError::packUnavailable();
    std::vector<Asset> assets;
    std::copy_if(manifest.assets.begin(), manifest.assets.end(), std::back_inserter(assets),
                 [&](const Asset& asset) { return asset.contentPackID == packID; });
    if (assets.empty())
        throw LaunchContentPackInstallerError::packUnavailable();

    // The server names the folders and files: refuse any name that would leave its folder before
    // anything is downloaded or removed.
    const QString packFolder = ContentStore::fileNameFor(packID);
    const QString versionFolder = ContentStore::fileNameFor(pack->version);
    const bool namesAreSafe =
        ContentStore::isSafeComponent(packFolder) && ContentStore::isSafeComponent(versionFolder) &&
        std::all_of(assets.begin(), assets.end(),
                    [](const Asset& asset) { return ContentStore::isSafeComponent(asset.id); });
    if (!namesAreSafe)
        throw LaunchContentPackInstallerError::unusableName();

    qint64 statedBytes = 0;
    for (const Asset& asset : assets)
        statedBytes += std::max<qint64>(asset.fileSizeBytes.value_or(0), 0);

    // Staged inside the content store, so that publishing is a rename on one file system; the
    // space is checked before a byte is fetched.
    const QString store = ContentStore::locate().folder;
    const auto prepare = [store, statedBytes, margin = m_limits.spaceMarginBytes] {
        ContentStore::removeLeftovers(store);
        FileSafety::requireFreeSpace(store, statedBytes, margin);
        return std::make_shared<WorkFolder>(WorkFolder::create(store, u"pack"_s));
    };
    const std::shared_ptr<WorkFolder> staging = co_await Worker::run(prepare);

    std::exception_ptr failure;
    try {
        control.throwIfCancelled();
        QList<InstalledAsset> entries =
            co_await stageAssets(m_network, m_limits, assets, staging->path(), control);
        // The last moment a Cancel counts. Once publishing has begun it runs to its end, so that
        // the store is never left between two versions; a Cancel then is too late and the install
        // succeeds.
        control.throwIfCancelled();
        const auto publishing = [=, checkpoint = m_checkpoint, entries = std::move(entries)] {
            // The staged names are durable before the manifest names them.
            FileSafety::flushFolder(staging->path());
            publish(*staging, store, packFolder, versionFolder, packID, entries, checkpoint);
            return true;
        };
        co_await Worker::run(publishing);
    } catch (...) {
        failure = std::current_exception();
    }
    // The work folder goes with everything it still holds, whatever happened.
    const auto release = [staging]() mutable {
        *staging = WorkFolder();
        return true;
    };
    co_await Worker::run(release);
    if (failure)
        std::rethrow_exception(failure);
}

QCoro::Task<QHash<QString, QString>> ProductionContentPackInstaller::installedPackVersions() {
    QFuture<QHash<QString, QString>> versions =
        QtConcurrent::run(&ContentStore::installedPackVersions);
    co_return co_await versions;
}
