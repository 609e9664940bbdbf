#include "account/FileAccountSnapshotCache.h"

#include "foundation/LaunchError.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QUuid>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

LaunchError fileError(const QString& sentence, const QString& path) {
    return LaunchError::file(sentence.arg(QFileInfo(path).fileName()));
}

// Creates the folder and any missing parents, each 0700; existing ones keep their permissions.
void makeFolder(const QString& path) {
    const QString absolute = QDir::cleanPath(QDir(path).absolutePath());
    QString built;
    for (const QString& part : absolute.split(u'/', Qt::SkipEmptyParts)) {
        built += u'/' + part;
        const QByteArray native = QFile::encodeName(built);
        if (::mkdir(native.constData(), 0700) == 0 || errno == EEXIST) {
            if (QFileInfo(built).isDir())
                continue;
        }
        throw fileError(QCoreApplication::translate("FileAccountSnapshotCache",
                                                    "The folder “%1” couldn’t be created."),
                        built);
    }
}

// Writes the bytes into a new file that only this user can read; false when that failed.
bool writeNewPrivateFile(const QString& path, const QByteArray& bytes) {
    const QByteArray native = QFile::encodeName(path);
    const int descriptor =
        ::open(native.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return false;
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t chunk =
            ::write(descriptor, bytes.constData() + written, size_t(bytes.size() - written));
        if (chunk < 0 && errno == EINTR)
            continue;
        if (chunk <= 0) {
            ::close(descriptor);
            return false;
        }
        written += chunk;
    }
    const bool synced = ::fsync(descriptor) == 0;
    return ::close(descriptor) == 0 && synced;
}

} // namespace

QString FileAccountSnapshotCache::defaultFilePath() {
    const QString dataFolder =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (dataFolder.isEmpty())
        qFatal("The per-user data folder is unknown");
    return dataFolder + u"/Vantor Launch/website-account-snapshot.json"_s;
}

FileAccountSnapshotCache::FileAccountSnapshotCache(QString filePath)
    : m_filePath(std::move(filePath)) {}

std::optional<LaunchAccountSnapshot> FileAccountSnapshotCache::load() {
    const QByteArray native = QFile::encodeName(m_filePath);
    struct stat attributes {};
    if (::stat(native.constData(), &attributes) != 0) {
        if (errno == ENOENT)
            return std::nullopt;
        throw fileError(QCoreApplication::translate("FileAccountSnapshotCache",
                                                    "The file “%1” couldn’t be opened."),
                        m_filePath);
    }
    if (!S_ISREG(attributes.st_mode) || attributes.st_size > maximumFileSize)
        throw LaunchAccountSnapshot::invalidSnapshotError();

    QFile file(m_filePath);
    if (!file.open(QIODevice::ReadOnly))
        throw fileError(QCoreApplication::translate("FileAccountSnapshotCache",
                                                    "The file “%1” couldn’t be opened."),
                        m_filePath);
    // A file that grew after the size check is still read no further than the limit.
    const QByteArray bytes = file.read(maximumFileSize + 1);
    if (bytes.size() > maximumFileSize)
        throw LaunchAccountSnapshot::invalidSnapshotError();
    return LaunchAccountSnapshot::decode(bytes).validated();
}

void FileAccountSnapshotCache::save(const LaunchAccountSnapshot& snapshot) {
    snapshot.validated();
    const QString folder = QFileInfo(m_filePath).absolutePath();
    makeFolder(folder);
    const QByteArray bytes = snapshot.encoded();

    const QString temporary =
        folder + u'/' + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + u".tmp"_s;
    if (!writeNewPrivateFile(temporary, bytes)) {
        QFile::remove(temporary);
        throw fileError(QCoreApplication::translate("FileAccountSnapshotCache",
                                                    "The file “%1” couldn’t be saved."),
                        m_filePath);
    }
    const bool replaced = ::rename(QFile::encodeName(temporary).constData(),
                                   QFile::encodeName(m_filePath).constData()) == 0;
    QFile::remove(temporary);
    if (!replaced)
        throw fileError(QCoreApplication::translate("FileAccountSnapshotCache",
                                                    "The file “%1” couldn’t be saved."),
                        m_filePath);
}

void FileAccountSnapshotCache::clear() {
    const QByteArray native = QFile::encodeName(m_filePath);
    if (::unlink(native.constData()) == 0 || errno == ENOENT)
        return;
    throw fileError(QCoreApplication::translate("FileAccountSnapshotCache",
                                                "The file “%1” couldn’t be removed."),
                    m_filePath);
}
