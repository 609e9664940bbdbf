#include "platform/linux/RenameExchangeReplacement.h"

#include "foundation/FileSafety.h"
#include "foundation/LaunchError.h"

#include <QByteArrayView>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QUuid>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
namespace fs = std::filesystem;

Q_LOGGING_CATEGORY(lcReplacement, "vantor.platform.replacement")

namespace {

[[noreturn]] void fail(const QString& what, int error) {
    throw LaunchError::file(u"%1: %2"_s.arg(what, QString::fromLocal8Bit(std::strerror(error))));
}

// A copy that keeps links as links and the modes of files and folders: what a move across file
// systems would have produced.
void copyTree(const QString& from, const QString& to) {
    std::error_code error;
    fs::copy(QFile::encodeName(from).toStdString(), QFile::encodeName(to).toStdString(),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    if (error)
        fail(QCoreApplication::translate(
                 "RenameExchangeReplacement",
                 "The update could not be copied beside the installed application"),
             error.value());
}

// Puts a copied bundle's contents and names on disk before it takes the installed bundle's place,
// so that even a power cut right after the exchange leaves a whole bundle there. One flush of the
// file system: a flush per file costs a journal commit each.
void flushTree(const QString& root) {
    const int descriptor =
        ::open(QFile::encodeName(root).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        fail(QCoreApplication::translate("RenameExchangeReplacement",
                                         "The update could not be written to disk"),
             errno);
    const bool flushed = ::syncfs(descriptor) == 0;
    const int error = errno;
    ::close(descriptor);
    if (!flushed)
        fail(QCoreApplication::translate("RenameExchangeReplacement",
                                         "The update could not be written to disk"),
             error);
}

constexpr QLatin1StringView journalSuffix(".journal");
constexpr QLatin1StringView unfinishedJournalSuffix(".journal-writing");
constexpr QByteArrayView journalHeader = "vantor-launch replacement 1\n";

// Names made by a replacement: the prefix, a UUID, and the suffix of the kind of item.
bool isNamedByReplacement(const QString& name, QLatin1StringView suffix) {
    const QString prefix = QLatin1String(BundleReplacement::workFolderPrefix);
    constexpr qsizetype uuidLength = 36;
    return name.size() == prefix.size() + uuidLength + suffix.size() && name.startsWith(prefix) &&
           name.endsWith(suffix) &&
           !QUuid::fromString(QStringView(name).mid(prefix.size(), uuidLength)).isNull();
}

bool existsHere(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

bool isFolderHere(const QString& path) {
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool renamePath(const QString& from, const QString& to) {
    return ::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

// A link named like a work folder is removed as a link: removeRecursively would empty its target.
void removeWorkFolder(const QString& path) {
    if (isFolderHere(path))
        QDir(path).removeRecursively();
    else
        QFile::remove(path);
}

// Written whole or not at all: a new file flushed, then renamed over, then the folder flushed.
void writeJournal(const QString& path, const QByteArray& bytes) {
    const QString unfinished = path.chopped(journalSuffix.size()) + unfinishedJournalSuffix;
    const QByteArray name = QFile::encodeName(unfinished);
    const int descriptor = ::open(name.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0)
        fail(QCoreApplication::translate(
                 "RenameExchangeReplacement",
                 "The update could not be recorded before it was put in place"),
             errno);
    bool written = true;
    for (qsizetype done = 0; written && done < bytes.size();) {
        const ssize_t count =
            ::write(descriptor, bytes.constData() + done, size_t(bytes.size() - done));
        written = count > 0 || (count < 0 && errno == EINTR);
        done += std::max<ssize_t>(count, 0);
    }
    written = written && ::fsync(descriptor) == 0;
    int error = written ? 0 : errno;
    ::close(descriptor);
    if (written && !renamePath(unfinished, path)) {
        written = false;
        error = errno;
    }
    if (!written) {
        QFile::remove(unfinished);
        fail(QCoreApplication::translate(
                 "RenameExchangeReplacement",
                 "The update could not be recorded before it was put in place"),
             error);
    }
    FileSafety::flushFolder(QFileInfo(path).absolutePath());
}

// The kernel or the file system cannot swap two names in one step.
bool exchangeIsUnsupported(int error) {
    return error == EINVAL || error == EOPNOTSUPP || error == ENOSYS;
}

bool isSingleName(const QByteArray& name) {
    return !name.isEmpty() && name.size() <= NAME_MAX && name != "." && name != ".." &&
           !name.contains('/') && !name.contains('\0');
}

// Puts right what the journal of workName says, if it must; true when the bundle is in its place
// and the journal is gone, so that the work folder may go too.
bool finishFromJournal(const QDir& parent, const QString& workName) {
    const QString journalPath = parent.filePath(workName + journalSuffix);
    QFile file(journalPath);
    std::optional<RenameExchangeReplacement::Journal> journal;
    if (file.open(QIODevice::ReadOnly))
        journal = RenameExchangeReplacement::Journal::parse(
            file.read(RenameExchangeReplacement::Journal::maximumBytes + 1));
    const QString work = parent.filePath(workName);
    if (!journal || !isFolderHere(work)) {
        qCWarning(lcReplacement) << "Left alone, unreadable:" << journalPath;
        return false;
    }
    const QString bundleName = QFile::decodeName(journal->bundleName);
    const QString installed = parent.filePath(bundleName);
    if (!existsHere(installed)) {
        // Cut short between the two renames: the staged bundle, complete and flushed before the
        // journal was written, goes on into place; without it the backup goes back.
        const QString staged = work + u'/' + bundleName;
        const QString backup = work + u'/' + QFile::decodeName(journal->backupName);
        const QString from = existsHere(staged) ? staged : backup;
        if (!existsHere(from) || !renamePath(from, installed)) {
            qCCritical(lcReplacement) << "Could not put back" << installed << "from" << work;
            return false;
        }
        FileSafety::flushFolder(work);
        FileSafety::flushFolder(parent.absolutePath());
        qCInfo(lcReplacement) << (from == staged ? "Finished" : "Took back")
                              << "an interrupted replacement of" << installed;
    }
    QFile::remove(journalPath);
    FileSafety::flushFolder(parent.absolutePath());
    return true;
}

} // namespace

std::optional<RenameExchangeReplacement::Journal>
RenameExchangeReplacement::Journal::parse(const QByteArray& bytes) {
    if (bytes.size() > maximumBytes || !bytes.startsWith(journalHeader))
        return std::nullopt;
    const QList<QByteArray> lines = bytes.sliced(journalHeader.size()).split('\n');
    if (lines.size() != 3 || !lines[2].isEmpty())
        return std::nullopt;
    Journal journal{QByteArray::fromPercentEncoding(lines[0]),
                    QByteArray::fromPercentEncoding(lines[1])};
    // Written one way only: anything else did not come from here.
    if (!isSingleName(journal.bundleName) || !isSingleName(journal.backupName) ||
        journal.bundleName == journal.backupName || journal.serialize() != bytes)
        return std::nullopt;
    return journal;
}

QByteArray RenameExchangeReplacement::Journal::serialize() const {
    return journalHeader.toByteArray() + bundleName.toPercentEncoding() + '\n' +
           backupName.toPercentEncoding() + '\n';
}

RenameExchangeReplacement::RenameExchangeReplacement(std::function<void(Step)> checkpoint,
                                                     Exchange exchange)
    : m_checkpoint(std::move(checkpoint))
    , m_exchange(exchange) {}

void RenameExchangeReplacement::checkpoint(Step step) const {
    if (m_checkpoint)
        m_checkpoint(step);
}

void RenameExchangeReplacement::recoverInterrupted(const QString& folder) {
    const QDir parent(folder);
    const QStringList names =
        parent.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    QStringList stillJournaled;
    for (const QString& name : names) {
        if (isNamedByReplacement(name, journalSuffix)) {
            const QString workName = name.chopped(journalSuffix.size());
            if (!finishFromJournal(parent, workName))
                stillJournaled.append(workName);
        }
    }
    for (const QString& name : names) {
        if (isNamedByReplacement(name, unfinishedJournalSuffix)) {
            QFile::remove(parent.filePath(name));
        } else if (isNamedByReplacement(name, {}) && !stillJournaled.contains(name)) {
            qCInfo(lcReplacement) << "Removing what an interrupted update left:" << name;
            removeWorkFolder(parent.filePath(name));
        }
    }
}

void RenameExchangeReplacement::moveByTwoRenames(const QString& installed,
                                                 const QString& workFolder,
                                                 const QString& backupName) const {
    const QString parent = QFileInfo(installed).absolutePath();
    const QString staged = workFolder + u'/' + QFileInfo(installed).fileName();
    const QString backup = workFolder + u'/' + backupName;
    const QString journal = workFolder + journalSuffix;
    const auto removeJournal = [&] {
        QFile::remove(journal);
        FileSafety::flushFolder(parent);
    };

    writeJournal(journal, Journal{QFile::encodeName(QFileInfo(installed).fileName()),
                                  QFile::encodeName(backupName)}
                              .serialize());
    checkpoint(Step::journalWritten);
    if (!renamePath(installed, backup)) {
        const int error = errno;
        removeJournal();
        fail(QCoreApplication::translate("RenameExchangeReplacement",
                                         "The installed application could not be replaced"),
             error);
    }
    FileSafety::flushFolder(workFolder);
    FileSafety::flushFolder(parent);
    checkpoint(Step::movedAside);
    if (!renamePath(staged, installed)) {
        const int error = errno;
        // Back as it was; should even that fail, the journal stays for the next start.
        if (renamePath(backup, installed)) {
            FileSafety::flushFolder(parent);
            removeJournal();
        }
        fail(QCoreApplication::translate("RenameExchangeReplacement",
                                         "The installed application could not be replaced"),
             error);
    }
    FileSafety::flushFolder(workFolder);
    FileSafety::flushFolder(parent);
    checkpoint(Step::movedIn);
    removeJournal();
}

QString RenameExchangeReplacement::replace(const QString& installed, const QString& replacement,
                                           const QString& backupName) {
    // First: an interrupted replacement may have taken the installed bundle from its place.
    const QString parentPath = QFileInfo(installed).absolutePath();
    recoverInterrupted(parentPath);
    const QFileInfo installedInfo(installed);
    if (!installedInfo.isDir() || installedInfo.isSymLink())
        throw LaunchError::file(
            QCoreApplication::translate("RenameExchangeReplacement",
                                        "The installed application at %1 is not a folder.")
                .arg(installed));
    if (backupName.isEmpty() || backupName.contains(u'/') || backupName == installedInfo.fileName())
        throw LaunchError::file(QCoreApplication::translate("RenameExchangeReplacement",
                                                            "The backup of %1 cannot be named %2.")
                                    .arg(installed, backupName));
    checkpoint(Step::cleanedLeftovers);

    // Staged in the installed bundle's own folder, under its name: renames need both on one file
    // system, and the name is the one it takes.
    const QDir parent(parentPath);
    const QString workFolder =
        parent.filePath(QLatin1String(workFolderPrefix) +
                        QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
    if (!QDir().mkdir(workFolder))
        fail(QCoreApplication::translate("RenameExchangeReplacement",
                                         "The update could not be staged beside %1")
                 .arg(installed),
             errno);
    const QString staged = QDir(workFolder).filePath(installedInfo.fileName());
    try {
        // Moved, its contents are on disk already (the caller's promise): only the folders whose
        // entries change are flushed, not the whole file system with everyone else's writes.
        if (!renamePath(replacement, staged)) {
            if (errno != EXDEV)
                fail(QCoreApplication::translate("RenameExchangeReplacement",
                                                 "The update could not be staged beside %1")
                         .arg(installed),
                     errno);
            copyTree(replacement, staged);
            flushTree(staged);
        }
        FileSafety::flushFolder(workFolder);
        checkpoint(Step::staged);

        const QByteArray from = QFile::encodeName(staged);
        const QByteArray target = QFile::encodeName(installedInfo.absoluteFilePath());
        int exchangeError = EINVAL;
        if (m_exchange == Exchange::whenSupported)
            exchangeError = ::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, target.constData(),
                                        RENAME_EXCHANGE) == 0
                                ? 0
                                : errno;
        if (exchangeError == 0) {
            FileSafety::flushFolder(parentPath);
            // The old bundle now lies where the staged one did.
            renamePath(staged, QDir(workFolder).filePath(backupName));
        } else if (exchangeIsUnsupported(exchangeError)) {
            qCInfo(lcReplacement) << "No exchange of names here; replacing by two renames";
            moveByTwoRenames(installedInfo.absoluteFilePath(), workFolder, backupName);
        } else {
            fail(QCoreApplication::translate("RenameExchangeReplacement",
                                             "The installed application could not be replaced"),
                 exchangeError);
        }
    } catch (...) {
        // While a journal names it, the work folder may hold the only copy of the bundle.
        if (!existsHere(workFolder + journalSuffix))
            QDir(workFolder).removeRecursively();
        throw;
    }
    checkpoint(Step::replaced);
    return workFolder;
}

namespace PlatformServices {

void recoverInterruptedReplacements(const QStringList& folders) {
    for (const QString& folder : folders)
        RenameExchangeReplacement::recoverInterrupted(folder);
}

} // namespace PlatformServices
