#include "content_packs/ProductionContentPackInstaller.h"

#include "content_packs/ContentStore.h"
#include "content_packs/LaunchContentPackInstallerError.h"
#include "foundation/FileSafety.h"
#include "foundation/WorkFolder.h"
#include "foundation/Worker.h"
#include "platform/FileExchange.h"

#include <QCoreApplication>
#include <QCoroFuture>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSet>
#include <QtConcurrent>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

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
    // A file taken from the installed version counts as done at once.
    void reused(qint64 statedBytes, qint64 bytes) {
        m_expected += bytes - statedBytes;
        m_received += bytes;
        report(false);
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
        failMove(QCoreApplication::translate("ProductionContentPackInstaller",
                                             "The Content Pack folder could not be created"),
                 errno);

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
            failMove(QCoreApplication::translate(
                         "ProductionContentPackInstaller",
                         "The previous Content Pack files could not be moved aside"),
                     errno);
        how = Published::movedAside;
    }
    if (how != Published::exchanged && !renamed(staging.path(), destination)) {
        const int error = errno;
        if (how == Published::movedAside)
            renamed(aside, destination);
        failMove(QCoreApplication::translate("ProductionContentPackInstaller",
                                             "The Content Pack could not be moved into place"),
                 error);
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

struct Prepared {
    QString store;
    std::shared_ptr<WorkFolder> staging;
    // Installed files of the pack by the lower-case digest the manifest records for them.
    QHash<QString, QString> installedByDigest;
};

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
    // The installed file with the same published digest, when the store holds one.
    QString installed;
};

struct Descriptor {
    int value = -1;
    explicit Descriptor(int descriptor)
        : value(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (value >= 0)
            ::close(value);
    }
};

[[noreturn]] void failCopy(const QString& path, int error) {
    throw LaunchError::file(
        QCoreApplication::translate("ProductionContentPackInstaller",
                                    "The installed file could not be copied to %1: %2")
            .arg(path, FileSafety::errorText(error ? error : EIO)));
}

// Reads `source` from its start to its end into a SHA-256 digest (lower-case hexadecimal), and
// into `copy` as well when it is open. Stops with the cancelled error between chunks; nullopt when
// the source cannot be read.
std::optional<QString> hashDescriptor(int source, int copy, const QString& copyPath,
                                      const Cancellation& cancellation) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest(EVP_MD_CTX_new(),
                                                                         &EVP_MD_CTX_free);
    if (!digest || EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr) != 1)
        return std::nullopt;
    std::vector<char> buffer(1 << 20);
    for (off_t offset = 0;;) {
        cancellation.throwIfCancelled();
        const ssize_t count = ::pread(source, buffer.data(), buffer.size(), offset);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        offset += count;
        if (EVP_DigestUpdate(digest.get(), buffer.data(), size_t(count)) != 1)
            return std::nullopt;
        for (ssize_t written = 0; copy >= 0 && written < count;) {
            const ssize_t step = ::write(copy, buffer.data() + written, size_t(count - written));
            if (step < 0 && errno == EINTR)
                continue;
            if (step <= 0)
                failCopy(copyPath, step < 0 ? errno : ENOSPC);
            written += step;
        }
    }
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(digest.get(), value, &length) != 1)
        return std::nullopt;
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char*>(value), int(length)).toHex());
}

// Proves an installed file against the published digest by hashing it from disk, then makes it
// the staged file: a hard link, or where none can be made (another file system) a copy, proven
// again as it is written. The link shares the installed file's inode, so nothing may ever write
// to the staged name: a file that does not prove is never linked, and a link that turns out to
// be another file is removed before the download takes its name. Returns the bytes reused, or
// nullopt when the file must be downloaded. Runs on a worker.
std::optional<qint64> reuseInstalled(const QString& installed, const QString& staged,
                                     const QString& sha256, qint64 maximumBytes,
                                     const Cancellation& cancellation) {
    const QByteArray from = QFile::encodeName(installed);
    const QByteArray to = QFile::encodeName(staged);
    const Descriptor source(::open(from.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct stat original {};
    if (source.value < 0 || ::fstat(source.value, &original) != 0 || !S_ISREG(original.st_mode) ||
        (maximumBytes > 0 && original.st_size > maximumBytes))
        return std::nullopt;
    if (hashDescriptor(source.value, -1, staged, cancellation) != sha256)
        return std::nullopt;

    if (::link(from.constData(), to.constData()) == 0) {
        struct stat linked {};
        if (::stat(to.constData(), &linked) == 0 && linked.st_dev == original.st_dev &&
            linked.st_ino == original.st_ino)
            return qint64(original.st_size);
        // Replaced between the hashing and the link: not the proven file.
        if (::unlink(to.constData()) != 0)
            failMove(QCoreApplication::translate("ProductionContentPackInstaller",
                                                 "A staged Content Pack file could not be removed"),
                     errno);
        return std::nullopt;
    }

    const Descriptor copy(::open(to.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (copy.value < 0)
        failCopy(staged, errno);
    const std::optional<QString> copied =
        hashDescriptor(source.value, copy.value, staged, cancellation);
    if (::fsync(copy.value) != 0)
        failCopy(staged, errno);
    if (copied != sha256) {
        if (::unlink(to.constData()) != 0)
            failMove(QCoreApplication::translate("ProductionContentPackInstaller",
                                                 "A staged Content Pack file could not be removed"),
                     errno);
        return std::nullopt;
    }
    return qint64(original.st_size);
}

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
    if (!file.installed.isEmpty()) {
        const auto prove = [installed = file.installed, path = file.path, expected,
                            maximum = file.statedBytes, cancellation = staging.cancellation] {
            return reuseInstalled(installed, path, expected, maximum, *cancellation);
        };
        const std::optional<qint64> reused = co_await Worker::run(prove);
        if (reused) {
            staging.meter->reused(file.statedBytes, *reused);
            co_return;
        }
    }
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
// would take one name (a download must never write into another file, least of all a reused one).
std::pair<std::vector<StagedFile>, QList<InstalledAsset>>
planFiles(const std::vector<Asset>& assets, const QString& staging,
          const QHash<QString, QString>& installedByDigest) {
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
        files.push_back(
            {.asset = &asset,
             .url = *asset.remoteProtectedAssetURL,
             .path = folder.filePath(asset.id + u".vdasset"_s),
             .proved = true,
             .statedBytes = std::max<qint64>(asset.fileSizeBytes.value_or(0), 0),
             .installed = installedByDigest.value(asset.protectedSHA256Hex->toLower())});
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
                                               QHash<QString, QString> installedByDigest,
                                               const TransferControl& control) {
    auto [files, entries] = planFiles(assets, staging, installedByDigest);
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

    // Staged inside the content store, so that publishing is a rename on one file system; the
    // space is checked before a byte is fetched. Files the installed version already holds
    // (the same published digest) need no room of their own unless they must be copied.
    const auto prepare = [packFolder, versionFolder, packID, assets,
                          margin = m_limits.spaceMarginBytes] {
        const QString store = ContentStore::locate().folder;
        const QString installedFolder =
            QDir::cleanPath(QDir(QDir(store).filePath(u"Packs"_s)).filePath(packFolder)) + u'/';
        const QString sameVersionFolder = installedFolder + versionFolder + u'/';
        ContentStore::removeLeftovers(store);
        // Only this pack's own files of another version, found where the store keeps them: the
        // manifest names them, but nothing outside the pack's folder is read for it. The same
        // version again fetches every file anew: that is how a user repairs a pack.
        QHash<QString, QString> installedByDigest;
        for (const InstalledAsset& entry :
             ContentStore::readEntries(store).value_or(QList<InstalledAsset>())) {
            if (entry.contentPackID != packID || !entry.protectedSHA256Hex ||
                entry.protectedSHA256Hex->isEmpty() || !entry.localProtectedAssetURL ||
                !entry.localProtectedAssetURL->isLocalFile())
                continue;
            const QString path = QDir::cleanPath(entry.localProtectedAssetURL->toLocalFile());
            if (path.startsWith(installedFolder) && !path.startsWith(sameVersionFolder))
                installedByDigest.insert(entry.protectedSHA256Hex->toLower(), path);
        }
        qint64 neededBytes = 0;
        for (const Asset& asset : assets) {
            if (!asset.protectedSHA256Hex ||
                !installedByDigest.contains(asset.protectedSHA256Hex->toLower()))
                neededBytes += std::max<qint64>(asset.fileSizeBytes.value_or(0), 0);
        }
        FileSafety::requireFreeSpace(store, neededBytes, margin);
        return Prepared{store, std::make_shared<WorkFolder>(WorkFolder::create(store, u"pack"_s)),
                        std::move(installedByDigest)};
    };
    const Prepared prepared = co_await Worker::run(prepare);
    const QString store = prepared.store;
    const std::shared_ptr<WorkFolder> staging = prepared.staging;

    std::exception_ptr failure;
    try {
        control.throwIfCancelled();
        QList<InstalledAsset> entries = co_await stageAssets(
            m_network, m_limits, assets, staging->path(), prepared.installedByDigest, control);
        // The last moment a Cancel counts. Once publishing has begun it runs to its end, so that
        // the store is never left between two versions; a Cancel then is too late and the install
        // succeeds.
        control.throwIfCancelled();
        const auto publishing = [=, checkpoint = m_checkpoint, entries = std::move(entries)] {
            // The staged names (links among them) are durable before the manifest names them.
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
