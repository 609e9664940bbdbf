#include "applications/ProductionApplicationUpdater.h"

#include "applications/ApplicationUpdaterError.h"
#include "foundation/FileSafety.h"
#include "foundation/WorkFolder.h"
#include "foundation/Worker.h"
#include "platform/BundleMetadata.h"

#include <QCoroFuture>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QUuid>
#include <QtConcurrent/QtConcurrentRun>
#include <exception>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcUpdater, "vantor.applications.updater")

namespace {

using Error = ApplicationUpdaterError;

QString newUuidText() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

bool isVerified(const QStringList& bundleIdentifiers, const std::optional<QString>& identifier) {
    return identifier && bundleIdentifiers.contains(*identifier, Qt::CaseSensitive);
}

// Any running copy of the product blocks the update, wherever it runs from.
void refuseWhileRunning(const Workspace& workspace, const QStringList& bundleIdentifiers) {
    for (const QString& identifier : bundleIdentifiers) {
        if (!workspace.runningApplications(identifier).isEmpty())
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

struct Inputs {
    std::shared_ptr<ArchiveExtractor> extractor;
    std::shared_ptr<CodeSignature> signature;
    AvailableApplicationRelease release;
    QString installed;
    QStringList bundleIdentifiers;
    QString archive;
    QString extraction;
    QFuture<std::optional<SigningIdentity>> installedIdentity;
    qint64 spaceMargin = 0;
};

// Unpacks, finds the application and proves it; the bundle's path when it passed.
QString unpackAndVerify(const Inputs& inputs) {
    // The archive goes once unpacked, so what the bundle needs is its unpacked size.
    const qint64 archiveBytes = QFileInfo(inputs.archive).size();
    if (const auto unpacked = inputs.extractor->unpackedSize(inputs.archive))
        FileSafety::requireFreeSpace(inputs.extraction, *unpacked - archiveBytes,
                                     inputs.spaceMargin);
    const bool extracted = inputs.extractor->extract(inputs.archive, inputs.extraction);
    QFile::remove(inputs.archive); // unpacked: no longer needed
    if (!extracted)
        throw makeLaunchError(Error::invalidArchive);

    const auto located = locateApplication(inputs.extraction, inputs.bundleIdentifiers);
    if (!located)
        throw makeLaunchError(Error::invalidArchive);
    const QUrl bundle = QUrl::fromLocalFile(*located);
    const auto metadata = readBundleMetadata(bundle);
    if (!metadata || !isVerified(inputs.bundleIdentifiers, metadata->bundleIdentifier))
        throw makeLaunchError(Error::invalidArchive);

    const auto strings =
        readInfoPlistStrings(bundle, {"CFBundleShortVersionString", "CFBundleVersion"});
    if (!strings || strings->value("CFBundleShortVersionString") != inputs.release.version ||
        !strings->contains("CFBundleShortVersionString"))
        throw makeLaunchError(Error::unexpectedVersion);
    if (inputs.release.build && (!strings->contains("CFBundleVersion") ||
                                 strings->value("CFBundleVersion") != *inputs.release.build))
        throw makeLaunchError(Error::unexpectedVersion);

    const std::optional<SigningIdentity> installedIdentity = inputs.installedIdentity.result();
    if (!installedIdentity)
        throw makeLaunchError(Error::invalidSignature);
    const auto downloadedIdentity = inputs.signature->signingIdentity(*located);
    if (!downloadedIdentity)
        throw makeLaunchError(Error::invalidSignature);
    if (!isVerified(inputs.bundleIdentifiers, installedIdentity->identifier) ||
        !isVerified(inputs.bundleIdentifiers, downloadedIdentity->identifier) ||
        installedIdentity->teamIdentifier != downloadedIdentity->teamIdentifier)
        throw makeLaunchError(Error::signingIdentityMismatch);
    return *located;
}

} // namespace

ProductionApplicationUpdater::ProductionApplicationUpdater(Services services,
                                                           StreamingDownload::Limits limits)
    : m_services(std::move(services))
    , m_limits(limits) {}

QCoro::Task<> ProductionApplicationUpdater::installUpdate(AvailableApplicationRelease release,
                                                          QUrl installedBundle,
                                                          QStringList bundleIdentifiers,
                                                          TransferControl control) {
    // Copies: the store may let go of this updater while a step is awaited.
    const Services services = m_services;

    if (!release.downloadURL)
        throw makeLaunchError(Error::missingDownload);
    const QUrl downloadURL = *release.downloadURL;
    if (downloadURL.scheme().toLower() != u"https"_s)
        throw makeLaunchError(Error::insecureDownload);
    refuseWhileRunning(*services.workspace, bundleIdentifiers);

    const QString installed = installedBundle.toLocalFile();
    const QString parent = QFileInfo(installed).absolutePath();
    const qint64 margin = m_limits.spaceMarginBytes;
    const auto prepare = [parent, margin] {
        WorkFolder::removeLeftovers(parent);
        FileSafety::requireFreeSpace(parent, 0, margin);
        return std::make_shared<WorkFolder>(WorkFolder::create(parent, u"update"_s));
    };
    const std::shared_ptr<WorkFolder> work = co_await Worker::run(prepare);
    const QString archive = QDir(work->path()).filePath(u"download.zip"_s);
    const QString extraction = QDir(work->path()).filePath(u"unpacked"_s);

    // Hashing the installed copy takes as long as hashing the download: it runs while the
    // download does, and the signature step takes its answer in its turn.
    const auto checkInstalled = [signature = services.signature, installed] {
        return signature->signingIdentity(installed);
    };
    QFuture<std::optional<SigningIdentity>> installedIdentity = QtConcurrent::run(checkInstalled);

    std::exception_ptr failure;
    try {
        StreamingDownload::Options options;
        options.limits = m_limits;
        options.progress = control.progress;
        options.cancellation = control.cancellation;
        const qint64 available = FileSafety::freeBytes(parent);
        // The archive and, at least, as much again unpacked; the exact unpacked size is checked
        // again before unpacking. A body without a length stops where the disk would fill.
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

        if (!QDir().mkpath(extraction))
            throw LaunchError::file(u"The folder %1 could not be created."_s.arg(extraction));
        Inputs inputs{services.extractor, services.signature, release,
                      installed,          bundleIdentifiers,  archive,
                      extraction,         installedIdentity,  margin};
        const auto verify = [inputs = std::move(inputs)] { return unpackAndVerify(inputs); };
        const QString verified = co_await Worker::run(verify);
        qCDebug(lcUpdater) << "Verified" << verified;

        // The last moment a cancel is heard: past it, the exchange runs to its end.
        control.throwIfCancelled();
        // Immediately before the installed bundle is touched: a copy may have started meanwhile.
        refuseWhileRunning(*services.workspace, bundleIdentifiers);

        const QString backupName = u"Vantor Director Backup-"_s + newUuidText() + u".app"_s;
        const auto replace = [replacement = services.replacement, installed, verified, backupName] {
            const QString workFolder = replacement->replace(installed, verified, backupName);
            // The backup has served its purpose once the exchange is done.
            QDir(workFolder).removeRecursively();
            return true;
        };
        co_await Worker::run(replace);
    } catch (...) {
        failure = std::current_exception();
    }
    // Whatever the outcome, the download and what was unpacked go with the work folder.
    installedIdentity.waitForFinished();
    const auto letGo = [work]() mutable {
        *work = WorkFolder();
        return true;
    };
    co_await Worker::run(letGo);
    if (failure) {
        qCInfo(lcUpdater) << "The update was not installed";
        std::rethrow_exception(failure);
    }
    qCInfo(lcUpdater) << "Installed version" << release.version << "at" << installed;
}
