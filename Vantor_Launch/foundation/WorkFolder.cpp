#include "foundation/WorkFolder.h"

#include "foundation/FileSafety.h"
#include "foundation/LaunchError.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUuid>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QString lockSuffix = u".lock"_s;

// The folder's own name, without any suffix the same lock covers.
const QRegularExpression& ownedName() {
    static const QRegularExpression pattern(
        u"^(\\.vantor-launch-(?:pack|update|catalog)-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12})"_s);
    return pattern;
}

QByteArray encoded(const QString& path) {
    return QFile::encodeName(path);
}

void removeItem(const QString& path) {
    const QFileInfo item(path);
    if (item.isDir() && !item.isSymLink())
        QDir(path).removeRecursively();
    else
        QFile::remove(path);
}

// Removes the folder named owner in parent and every item its lock covers, but not the lock.
int removeCovered(const QDir& parent, const QString& owner, const QStringList& names) {
    int removed = 0;
    for (const QString& name : names) {
        if (name.startsWith(owner) && name != owner + lockSuffix) {
            removeItem(parent.filePath(name));
            ++removed;
        }
    }
    return removed;
}

QStringList entriesOf(const QDir& folder) {
    return folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

// Opens and locks the file at path. With `wait` false, -1 when another process holds it.
int lockFile(const QString& path, bool create, bool wait) {
    const int flags = O_RDWR | O_CLOEXEC | (create ? O_CREAT : 0);
    const int descriptor = ::open(encoded(path).constData(), flags, 0600);
    if (descriptor < 0)
        return -1;
    if (::flock(descriptor, LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
        ::close(descriptor);
        return -1;
    }
    return descriptor;
}

// True when the descriptor still names the file at path: a sweeper may have removed the lock
// file between our open and our lock, and a lock on a removed file protects nothing.
bool stillLinked(int descriptor, const QString& path) {
    struct stat held {};
    struct stat named {};
    return ::fstat(descriptor, &held) == 0 && ::stat(encoded(path).constData(), &named) == 0 &&
           held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

} // namespace

WorkFolder WorkFolder::create(const QString& parent, const QString& kind) {
    if (!QDir().mkpath(parent))
        throw LaunchError::file(
            QCoreApplication::translate("WorkFolder", "The folder %1 could not be created: %2")
                .arg(parent, FileSafety::errorText(errno)));
    for (;;) {
        const QString path =
            QDir(parent).filePath(QLatin1String(prefix) + kind + u'-' +
                                  QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
        const QString lockPath = path + lockSuffix;
        // The lock comes first: a folder without a held lock is a leftover to any sweeper.
        const int lock = lockFile(lockPath, true, true);
        if (lock < 0)
            throw LaunchError::file(
                QCoreApplication::translate("WorkFolder", "The folder %1 could not be prepared: %2")
                    .arg(parent, FileSafety::errorText(errno)));
        if (!stillLinked(lock, lockPath)) {
            ::close(lock);
            continue;
        }
        if (::mkdir(encoded(path).constData(), 0700) != 0) {
            const int error = errno;
            QFile::remove(lockPath);
            ::close(lock);
            throw LaunchError::file(
                QCoreApplication::translate("WorkFolder", "The folder %1 could not be created: %2")
                    .arg(path, FileSafety::errorText(error)));
        }
        return WorkFolder(path, lock);
    }
}

int WorkFolder::removeLeftovers(const QString& parent) {
    const QDir folder(parent);
    const QStringList names = entriesOf(folder);
    QStringList owners;
    for (const QString& name : names) {
        const auto match = ownedName().match(name);
        if (match.hasMatch() && !owners.contains(match.captured(1)))
            owners.append(match.captured(1));
    }
    int removed = 0;
    for (const QString& owner : owners) {
        const QString lockPath = folder.filePath(owner + lockSuffix);
        const int lock = lockFile(lockPath, true, false);
        if (lock < 0)
            continue; // a running launcher still works there
        removed += removeCovered(folder, owner, names);
        QFile::remove(lockPath);
        ::close(lock);
    }
    return removed;
}

int WorkFolder::removeEarlierTemporaryItems(const QString& temporaryFolder) {
    static const QRegularExpression earlier(
        u"^vantor-launch-(?:pack|download|update)-[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-"
        u"[0-9A-F]{12}(?:\\.zip)?$"_s);
    const QDir folder(temporaryFolder);
    int removed = 0;
    for (const QFileInfo& item :
         folder.entryInfoList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)) {
        if (!earlier.match(item.fileName()).hasMatch() || item.ownerId() != ::geteuid())
            continue;
        removeItem(item.filePath());
        ++removed;
    }
    return removed;
}

WorkFolder::WorkFolder(QString path, int lockDescriptor)
    : m_path(std::move(path))
    , m_lock(lockDescriptor) {}

WorkFolder::WorkFolder(WorkFolder&& other) noexcept
    : m_path(std::exchange(other.m_path, {}))
    , m_lock(std::exchange(other.m_lock, -1)) {}

WorkFolder& WorkFolder::operator=(WorkFolder&& other) noexcept {
    if (this != &other) {
        release();
        m_path = std::exchange(other.m_path, {});
        m_lock = std::exchange(other.m_lock, -1);
    }
    return *this;
}

WorkFolder::~WorkFolder() {
    release();
}

void WorkFolder::release() {
    if (m_lock < 0)
        return;
    const QDir parent = QFileInfo(m_path).absoluteDir();
    const QString own = QFileInfo(m_path).fileName();
    removeCovered(parent, own, entriesOf(parent));
    QFile::remove(m_path + lockSuffix);
    ::close(m_lock);
    m_lock = -1;
}
