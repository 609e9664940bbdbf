#include "applications/ProductionApplicationUpdater.h"

#include "applications/ApplicationUpdaterError.h"
#include "applications/PreparedReleaseRecord.h"
#include "foundation/FileSafety.h"
#include "foundation/WorkFolder.h"
#include "foundation/Worker.h"
#include "platform/BundleMetadata.h"

#include <QCoreApplication>
#include <QCoroFuture>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QThread>
#include <QThreadPool>
#include <QUuid>
#include <QtConcurrent/QtConcurrentRun>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcUpdater, "vantor.applications.updater")

// The unpacker waits on the growing download for as long as it lasts, and the installed copy's
// hash runs beside it: neither may take a thread of the global pool, whose few threads write the
// download itself.
Q_GLOBAL_STATIC(QThreadPool, longWork)
// The same work when nobody waits for it: a release prepared while the application runs.
struct IdleThreadPool : QThreadPool {
    IdleThreadPool() { setThreadPriority(QThread::IdlePriority); }
};
Q_GLOBAL_STATIC(IdleThreadPool, idleWork)
// Replaced bundles are deleted here once the new one is in place, so that the application can be
// reopened without waiting for it. The pool is waited for when the process ends; a kill leaves
// the work folder, which the next replacement (or start-up) removes.
Q_GLOBAL_STATIC(QThreadPool, backupRemoval)

namespace {

using Error = ApplicationUpdaterError;

QString newUuidText() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

bool isVerified(const QStringList& bundleIdentifiers, const std::optional<QString>& identifier) {
    return identifier && bundleIdentifiers.contains(*identifier, Qt::CaseSensitive);
}

// Any running copy of the product blocks the update, wherever it runs from. /proc is read on a
// worker: a busy machine makes that slow enough to stall the interface.
QCoro::Task<> refuseWhileRunning(std::shared_ptr<Workspace> workspace,
                                 QStringList bundleIdentifiers) {
    for (const QString& identifier : bundleIdentifiers) {
        const QList<RunningApplication> running =
            co_await workspace->findRunningApplications(identifier);
        if (!running.isEmpty())
            throw makeLaunchError(Error::applicationRunning);
    }
}

// Directories that count as one item, as a file browser shows them: their insides are not
// searched for the application.
bool isPackage(const QFileInfo& info) {
    return info.suffix().compare(u"app"_s, Qt::CaseInsensitive) == 0;
}

// Depth first, in the order the folder lists its entries; hidden entries and links are skipped
// and packages are not entered.
std::optional<QString> locateApplication(const QString& folder,
                                         const QStringList& bundleIdentifiers) {
    const QFileInfoList entries = QDir(folder).entryInfoList(
        QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System, QDir::NoSort);
    for (const QFileInfo& entry : entries) {
        if (entry.isSymLink() || !entry.isDir())
            continue;
        if (entry.suffix() == u"app"_s) {
            const auto metadata = readBundleMetadata(QUrl::fromLocalFile(entry.filePath()));
            if (metadata && isVerified(bundleIdentifiers, metadata->bundleIdentifier))
                return entry.filePath();
        }
        if (isPackage(entry))
            continue;
        if (auto found = locateApplication(entry.filePath(), bundleIdentifiers))
            return found;
    }
    return std::nullopt;
}

// Unpacked sizes are looked at again every so often while unpacking a growing download, whose
// final size nobody knows yet: the disk keeps the margin that the user's own work needs.
constexpr qint64 spaceCheckBytes = 16 * 1024 * 1024;

QString stagingFolderIn(const QString& parent) {
    return QDir(parent).filePath(QLatin1String(ProductionApplicationUpdater::stagingFolderName));
}

QString recordIn(const QString& staging) {
    return staging + u"/release"_s;
}

bool isRealFolder(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool existsHere(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

[[noreturn]] void failOnFile(const QString& what, int error) {
    throw LaunchError::file(u"%1: %2"_s.arg(what, FileSafety::errorText(error)));
}

void renameOrFail(const QString& from, const QString& to) {
    if (::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) != 0)
        failOnFile(QCoreApplication::translate("ProductionApplicationUpdater",
                                               "The update could not be moved to %1")
                       .arg(to),
                   errno);
}

// One flush of the file system for the whole bundle: a flush per file costs a journal commit
// each. A prepared release may wait through a power cut, and its record must never describe
// files whose contents are not on disk.
void flushFileSystemOf(const QString& path) {
    const int descriptor =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool flushed = descriptor >= 0 && ::syncfs(descriptor) == 0;
    const int error = errno;
    if (descriptor >= 0)
        ::close(descriptor);
    if (!flushed)
        failOnFile(QCoreApplication::translate("ProductionApplicationUpdater",
                                               "The update could not be written to disk"),
                   error);
}

// A prepared release, whole: a record that reads, and the bundle it names.
struct Staged {
    PreparedReleaseRecord record;
    QString bundle;
};

std::optional<Staged> readStaged(const QString& parent) {
    const QString staging = stagingFolderIn(parent);
    QFile file(recordIn(staging));
    if (!isRealFolder(staging) || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    auto record = PreparedReleaseRecord::parse(file.read(PreparedReleaseRecord::maximumBytes + 1));
    if (!record)
        return std::nullopt;
    const QString bundle = staging + u'/' + record->bundleName;
    if (!isRealFolder(bundle))
        return std::nullopt;
    return Staged{std::move(*record), bundle};
}

// The record goes first: whatever a kill leaves after it is no prepared release to anyone.
void removeStaging(const QString& parent) {
    const QString staging = stagingFolderIn(parent);
    if (!existsHere(staging))
        return;
    if (!isRealFolder(staging)) {
        QFile::remove(staging);
        return;
    }
    QFile::remove(recordIn(staging));
    FileSafety::flushFolder(staging);
    QDir(staging).removeRecursively();
}

// Throws unless the bundle's files are those that were verified.
bool isUnchanged(const Staged& staged) {
    const QByteArray fingerprint = PreparedReleaseRecord::fingerprintOf(staged.bundle);
    return !fingerprint.isEmpty() && fingerprint == staged.record.fingerprint;
}

// The product, and exactly the published version and build.
void requireRelease(const QString& bundle, const AvailableApplicationRelease& release,
                    const QStringList& bundleIdentifiers) {
    const QUrl url = QUrl::fromLocalFile(bundle);
    const auto metadata = readBundleMetadata(url);
    if (!metadata || !isVerified(bundleIdentifiers, metadata->bundleIdentifier))
        throw makeLaunchError(Error::invalidArchive);
    const auto strings =
        readInfoPlistStrings(url, {"CFBundleShortVersionString", "CFBundleVersion"});
    if (!strings || strings->value("CFBundleShortVersionString") != release.version ||
        !strings->contains("CFBundleShortVersionString"))
        throw makeLaunchError(Error::unexpectedVersion);
    if (release.build && (!strings->contains("CFBundleVersion") ||
                          strings->value("CFBundleVersion") != *release.build))
        throw makeLaunchError(Error::unexpectedVersion);
}

QUrl secureDownloadOf(const AvailableApplicationRelease& release) {
    if (!release.downloadURL)
        throw makeLaunchError(Error::missingDownload);
    if (release.downloadURL->scheme().toLower() != u"https"_s)
        throw makeLaunchError(Error::insecureDownload);
    return *release.downloadURL;
}

// Stops the unpacking on a cancel, and before the disk runs out of its margin.
ArchiveExtractor::Checkpoint checkpointFor(std::shared_ptr<Cancellation> cancellation,
                                           QString folder, qint64 margin) {
    auto nextSpaceCheck = std::make_shared<qint64>(0);
    return [cancellation = std::move(cancellation), folder = std::move(folder), margin,
            nextSpaceCheck](qint64 unpackedBytes) {
        if (cancellation)
            cancellation->throwIfCancelled();
        if (unpackedBytes >= *nextSpaceCheck) {
            *nextSpaceCheck = unpackedBytes + spaceCheckBytes;
            FileSafety::requireFreeSpace(folder, 0, margin);
        }
    };
}

struct StreamOutcome {
    ArchiveExtractor::Streamed streamed = ArchiveExtractor::Streamed::refused;
    std::exception_ptr error;
};

struct Inputs {
    std::shared_ptr<ArchiveExtractor> extractor;
    std::shared_ptr<CodeSignature> signature;
    std::shared_ptr<Cancellation> cancellation;
    ArchiveExtractor::Checkpoint checkpoint;
    AvailableApplicationRelease release;
    QString parent;
    QString installedName;
    QStringList bundleIdentifiers;
    QString archive;
    QString extraction;
    QString staged;   // in the work folder, moved whole to the staging folder once verified
    QString previous; // where an older prepared release goes, to leave with the work folder
    ArchiveExtractor::Streamed streamed;
    QFuture<std::optional<SigningIdentity>> installedIdentity;
    qint64 spaceMargin = 0;

    void throwIfCancelled() const {
        if (cancellation)
            cancellation->throwIfCancelled();
    }
};

// Unpacks what the stream could not, finds the application, proves it, and puts it in the
// staging folder with its record; the prepared bundle's path.
QString verifyAndStage(const Inputs& inputs) {
    if (inputs.streamed == ArchiveExtractor::Streamed::needsWholeArchive) {
        qCInfo(lcUpdater) << "Unpacking the whole archive after the download";
        QDir(inputs.extraction).removeRecursively();
        if (!QDir().mkpath(inputs.extraction))
            failOnFile(QCoreApplication::translate("ProductionApplicationUpdater",
                                                   "The folder %1 could not be created")
                           .arg(inputs.extraction),
                       errno);
        // The archive goes once unpacked, so what the bundle needs is its unpacked size.
        const qint64 archiveBytes = QFileInfo(inputs.archive).size();
        if (const auto unpacked = inputs.extractor->unpackedSize(inputs.archive))
            FileSafety::requireFreeSpace(inputs.extraction, *unpacked - archiveBytes,
                                         inputs.spaceMargin);
        if (!inputs.extractor->extract(inputs.archive, inputs.extraction, inputs.checkpoint))
            throw makeLaunchError(Error::invalidArchive);
    } else if (inputs.streamed == ArchiveExtractor::Streamed::refused) {
        throw makeLaunchError(Error::invalidArchive);
    }
    QFile::remove(inputs.archive); // unpacked: no longer needed
    inputs.throwIfCancelled();

    const auto located = locateApplication(inputs.extraction, inputs.bundleIdentifiers);
    if (!located)
        throw makeLaunchError(Error::invalidArchive);
    if (!QDir().mkpath(inputs.staged))
        failOnFile(QCoreApplication::translate("ProductionApplicationUpdater",
                                               "The folder %1 could not be created")
                       .arg(inputs.staged),
                   errno);
    const QString bundle = inputs.staged + u'/' + inputs.installedName;
    renameOrFail(*located, bundle);
    // Taken before the checks: any change from here on, even during them, shows at install.
    PreparedReleaseRecord record{inputs.release, inputs.installedName,
                                 PreparedReleaseRecord::fingerprintOf(bundle)};
    if (record.fingerprint.isEmpty())
        throw makeLaunchError(Error::invalidArchive);
    requireRelease(bundle, inputs.release, inputs.bundleIdentifiers);
    inputs.throwIfCancelled();

    while (!inputs.installedIdentity.isFinished()) {
        inputs.throwIfCancelled();
        QThread::msleep(5);
    }
    const std::optional<SigningIdentity> installedIdentity = inputs.installedIdentity.result();
    if (!installedIdentity)
        throw makeLaunchError(Error::invalidSignature);
    const auto downloadedIdentity = inputs.signature->signingIdentity(bundle);
    if (!downloadedIdentity)
        throw makeLaunchError(Error::invalidSignature);
    if (!isVerified(inputs.bundleIdentifiers, installedIdentity->identifier) ||
        !isVerified(inputs.bundleIdentifiers, downloadedIdentity->identifier) ||
        installedIdentity->teamIdentifier != downloadedIdentity->teamIdentifier)
        throw makeLaunchError(Error::signingIdentityMismatch);
    inputs.throwIfCancelled();

    flushFileSystemOf(bundle);
    FileSafety::writeAtomically(recordIn(inputs.staged), record.serialize());
    // One release prepared at a time: the older one leaves with the work folder.
    const QString staging = stagingFolderIn(inputs.parent);
    if (existsHere(staging))
        renameOrFail(staging, inputs.previous);
    renameOrFail(inputs.staged, staging);
    FileSafety::flushFolder(inputs.parent);
    return staging + u'/' + inputs.installedName;
}

} // namespace

ProductionApplicationUpdater::ProductionApplicationUpdater(Services services,
                                                           StreamingDownload::Limits limits)
    : m_services(std::move(services))
    , m_limits(limits) {}

void ProductionApplicationUpdater::removeLeftovers(const QString& folder) {
    // Not beside a removal of the same folders still under way.
    waitForBackupRemoval();
    WorkFolder::removeLeftovers(folder);
    if (existsHere(stagingFolderIn(folder)) && !readStaged(folder)) {
        qCInfo(lcUpdater) << "Removing a release whose preparation was cut short in" << folder;
        removeStaging(folder);
    }
}

QCoro::Task<PreparedRelease>
ProductionApplicationUpdater::prepareUpdate(AvailableApplicationRelease release,
                                            QUrl installedBundle, QStringList bundleIdentifiers,
                                            TransferControl control) {
    // Copies: the store may let go of this updater while a step is awaited.
    const Services services = m_services;
    const StreamingDownload::Limits limits = m_limits;

    const QUrl downloadURL = secureDownloadOf(release);
    const QString installed = installedBundle.toLocalFile();
    const QString parent = QFileInfo(installed).absolutePath();
    const qint64 margin = limits.spaceMarginBytes;
    control.throwIfCancelled();
    const auto begin = [parent, margin] {
        removeLeftovers(parent);
        FileSafety::requireFreeSpace(parent, 0, margin);
        auto work = std::make_shared<WorkFolder>(WorkFolder::create(parent, u"update"_s));
        // The unpacker opens the download before its first byte arrives.
        QFile archive(QDir(work->path()).filePath(u"download.zip"_s));
        if (!archive.open(QIODevice::WriteOnly) ||
            !QDir().mkpath(QDir(work->path()).filePath(u"unpacked"_s)))
            throw LaunchError::file(
                QCoreApplication::translate("ProductionApplicationUpdater",
                                            "The folder %1 could not be prepared.")
                    .arg(work->path()));
        return work;
    };
    const std::shared_ptr<WorkFolder> work = co_await Worker::run(begin);
    const QString archive = QDir(work->path()).filePath(u"download.zip"_s);
    const QString extraction = QDir(work->path()).filePath(u"unpacked"_s);
    QThreadPool* const workPool = control.background ? idleWork() : longWork();

    // Hashing the installed copy takes as long as hashing the download: it runs while the
    // download does, and the signature step takes its answer in its turn.
    const auto checkInstalled = [signature = services.signature, installed] {
        return signature->signingIdentity(installed);
    };
    QFuture<std::optional<SigningIdentity>> installedIdentity =
        QtConcurrent::run(workPool, checkInstalled);

    // Each entry is unpacked as soon as its bytes are on disk, so that little is left to do
    // when the last byte arrives.
    const auto growth = std::make_shared<GrowingFile>();
    const ArchiveExtractor::Checkpoint checkpoint =
        checkpointFor(control.cancellation, extraction, margin);
    const auto unpack = [extractor = services.extractor, archive, extraction, growth, checkpoint] {
        StreamOutcome outcome;
        try {
            outcome.streamed = extractor->extractGrowing(archive, *growth, extraction, checkpoint);
        } catch (...) {
            outcome.error = std::current_exception();
        }
        return outcome;
    };
    QFuture<StreamOutcome> streaming = QtConcurrent::run(workPool, unpack);

    std::exception_ptr failure;
    try {
        StreamingDownload::Options options;
        options.limits = limits;
        options.progress = control.progress;
        options.cancellation = control.cancellation;
        options.background = control.background;
        const qint64 available = FileSafety::freeBytes(parent);
        // The archive and, at least, as much again unpacked; the unpacking watches the space it
        // leaves as it goes. A body without a length stops where the disk would fill.
        options.maximumBytes =
            available < 0 ? maximumDownloadBytes
                          : std::clamp<qint64>((available - margin) / 2, 1, maximumDownloadBytes);
        options.accept = [parent, margin](qint64 length) {
            if (length > 0)
                FileSafety::requireFreeSpace(parent, 2 * length, margin);
        };
        options.refused = [](int) { return LaunchError::url(LaunchError::badServerResponse); };
        options.tooLarge = [parent, available, limit = options.maximumBytes] {
            return limit < maximumDownloadBytes ? LaunchError::file(FileSafety::notEnoughSpaceText(
                                                      parent, 2 * limit + 1, available))
                                                : makeLaunchError(Error::invalidArchive);
        };
        co_await StreamingDownload::fetch(services.network, downloadURL, archive, options);
        qCDebug(lcUpdater) << "Downloaded" << downloadURL;
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure)
        growth->abandon();
    else
        growth->finish();
    const StreamOutcome streamed = co_await streaming;
    if (!failure)
        failure = streamed.error;

    QString prepared;
    if (!failure) {
        try {
            Inputs inputs{services.extractor,
                          services.signature,
                          control.cancellation,
                          checkpoint,
                          release,
                          parent,
                          QFileInfo(installed).fileName(),
                          bundleIdentifiers,
                          archive,
                          extraction,
                          QDir(work->path()).filePath(u"staged"_s),
                          QDir(work->path()).filePath(u"previous"_s),
                          streamed.streamed,
                          installedIdentity,
                          margin};
            const auto verify = [inputs = std::move(inputs)] { return verifyAndStage(inputs); };
            prepared = co_await Worker::run(workPool, verify);
        } catch (...) {
            failure = std::current_exception();
        }
    }
    // Whatever the outcome, the download, what was unpacked and any older prepared release go
    // with the work folder. The installed copy's hash is not waited for: it writes nothing.
    const auto letGo = [work]() mutable {
        *work = WorkFolder();
        return true;
    };
    co_await Worker::run(letGo);
    if (failure) {
        qCInfo(lcUpdater) << "The update was not prepared";
        std::rethrow_exception(failure);
    }
    qCInfo(lcUpdater) << "Prepared version" << release.version << "at" << prepared;
    co_return PreparedRelease{release, QUrl::fromLocalFile(prepared)};
}

QCoro::Task<std::optional<PreparedRelease>>
ProductionApplicationUpdater::preparedRelease(AvailableApplicationRelease release,
                                              QUrl installedBundle) {
    const QString parent = QFileInfo(installedBundle.toLocalFile()).absolutePath();
    const auto look = [parent, release]() -> std::optional<PreparedRelease> {
        removeLeftovers(parent);
        const std::optional<Staged> staged = readStaged(parent);
        if (!staged || staged->record.release != release)
            return std::nullopt;
        if (!isUnchanged(*staged)) {
            qCInfo(lcUpdater) << "The prepared release changed after it was verified";
            removeStaging(parent);
            return std::nullopt;
        }
        return PreparedRelease{release, QUrl::fromLocalFile(staged->bundle)};
    };
    co_return co_await Worker::run(look);
}

QCoro::Task<> ProductionApplicationUpdater::installPrepared(PreparedRelease prepared,
                                                            QUrl installedBundle,
                                                            QStringList bundleIdentifiers) {
    const Services services = m_services;
    const QString installed = installedBundle.toLocalFile();
    const QString parent = QFileInfo(installed).absolutePath();
    co_await refuseWhileRunning(services.workspace, bundleIdentifiers);

    const QString backupName = u"Vantor Director Backup-"_s + newUuidText() + u".app"_s;
    const auto replace = [replacement = services.replacement, installed, parent, prepared,
                          bundleIdentifiers, backupName] {
        // Checked again right before use: the release asked for, and the very files verified.
        removeLeftovers(parent);
        const std::optional<Staged> staged = readStaged(parent);
        if (!staged || staged->record.release != prepared.release ||
            QUrl::fromLocalFile(staged->bundle) != prepared.bundle)
            throw makeLaunchError(Error::preparedReleaseChanged);
        try {
            if (!isUnchanged(*staged))
                throw makeLaunchError(Error::preparedReleaseChanged);
            requireRelease(staged->bundle, prepared.release, bundleIdentifiers);
        } catch (const LaunchError&) {
            qCInfo(lcUpdater) << "The prepared release changed after it was verified";
            removeStaging(parent);
            throw makeLaunchError(Error::preparedReleaseChanged);
        }
        QString workFolder;
        try {
            workFolder = replacement->replace(installed, staged->bundle, backupName);
        } catch (...) {
            // The prepared bundle went with the failed replacement.
            removeStaging(parent);
            throw;
        }
        removeStaging(parent);
        return workFolder;
    };
    const QString workFolder = co_await Worker::run(replace);
    qCInfo(lcUpdater) << "Installed version" << prepared.release.version << "at" << installed;
    // The backup has served its purpose once the exchange is on disk; the caller need not wait
    // for hundreds of megabytes to be deleted before it reopens the application.
    backupRemoval()->start([workFolder] { QDir(workFolder).removeRecursively(); });
}

void ProductionApplicationUpdater::waitForBackupRemoval() {
    backupRemoval()->waitForDone();
}

QCoro::Task<> ProductionApplicationUpdater::discardPrepared(QUrl installedBundle) {
    const QString parent = QFileInfo(installedBundle.toLocalFile()).absolutePath();
    const auto discard = [parent] {
        removeStaging(parent);
        return true;
    };
    co_await Worker::run(discard);
}

QCoro::Task<> ProductionApplicationUpdater::installUpdate(AvailableApplicationRelease release,
                                                          QUrl installedBundle,
                                                          QStringList bundleIdentifiers,
                                                          TransferControl control) {
    secureDownloadOf(release);
    // A copy: the store may let go of this updater while a step is awaited.
    const auto self = std::make_shared<ProductionApplicationUpdater>(m_services, m_limits);
    // Nothing is downloaded for an update that could not be installed now.
    co_await refuseWhileRunning(self->m_services.workspace, bundleIdentifiers);
    std::optional<PreparedRelease> prepared =
        co_await self->preparedRelease(release, installedBundle);
    if (!prepared) {
        PreparedRelease fresh =
            co_await self->prepareUpdate(release, installedBundle, bundleIdentifiers, control);
        prepared = std::move(fresh);
    }
    std::exception_ptr failure;
    try {
        // The last moment a cancel is heard: past it, the exchange runs to its end.
        control.throwIfCancelled();
        co_await self->installPrepared(*prepared, installedBundle, bundleIdentifiers);
    } catch (...) {
        failure = std::current_exception();
    }
    if (failure) {
        co_await self->discardPrepared(installedBundle);
        std::rethrow_exception(failure);
    }
}
