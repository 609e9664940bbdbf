#include "foundation/FileSafety.h"

#include "foundation/LaunchError.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QUuid>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void fail(const QString& what, const QString& path, int error) {
    throw LaunchError::file(
        QCoreApplication::translate("FileSafety", "%1 %2 could not be written: %3")
            .arg(what, QDir::toNativeSeparators(path), FileSafety::errorText(error)));
}

bool writeAll(int descriptor, const QByteArray& bytes) {
    qsizetype offset = 0;
    while (offset < bytes.size()) {
        const ssize_t written =
            ::write(descriptor, bytes.constData() + offset, size_t(bytes.size() - offset));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        offset += written;
    }
    return true;
}

} // namespace

void FileSafety::flushFolder(const QString& folder) {
    const int descriptor =
        ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0) {
        ::fsync(descriptor);
        ::close(descriptor);
    }
}

QString FileSafety::errorText(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

void FileSafety::writeAtomically(const QString& path, const QByteArray& bytes) {
    const QFileInfo target(path);
    const QString folder = target.absolutePath();
    // Named like the launcher's other work items, so that a sweep recognises one left by a kill.
    const QString temporary = QDir(folder).filePath(
        u".vantor-launch-catalog-"_s +
        QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper() + u".tmp"_s);
    const QByteArray temporaryName = QFile::encodeName(temporary);
    const int descriptor =
        ::open(temporaryName.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (descriptor < 0)
        fail(QCoreApplication::translate("FileSafety", "The file"), path, errno);

    int error = 0;
    struct stat written {};
    if (!writeAll(descriptor, bytes) || ::fsync(descriptor) != 0 ||
        ::fstat(descriptor, &written) != 0)
        error = errno;
    else if (written.st_size != bytes.size())
        error = EIO;
    if (::close(descriptor) != 0 && error == 0)
        error = errno;
    if (error == 0) {
        // What a later reader will get, not what we meant to write.
        QFile check(temporary);
        if (!check.open(QIODevice::ReadOnly) || check.readAll() != bytes)
            error = EIO;
    }
    if (error == 0 && ::rename(temporaryName.constData(), QFile::encodeName(path).constData()) != 0)
        error = errno;
    if (error != 0) {
        ::unlink(temporaryName.constData());
        fail(QCoreApplication::translate("FileSafety", "The file"), path, error);
    }
    FileSafety::flushFolder(folder);
}

qint64 FileSafety::freeBytes(const QString& path) {
    QFileInfo existing(path);
    while (!existing.exists() && !existing.isRoot() && !existing.absolutePath().isEmpty()) {
        const QString parent = existing.absolutePath();
        if (parent == existing.absoluteFilePath())
            break;
        existing = QFileInfo(parent);
    }
    struct statvfs status {};
    if (::statvfs(QFile::encodeName(existing.absoluteFilePath()).constData(), &status) != 0)
        return -1;
    return qint64(status.f_bavail) * qint64(status.f_frsize);
}

QString FileSafety::notEnoughSpaceText(const QString& folder, qint64 neededBytes,
                                       qint64 freeBytes) {
    const QLocale locale = QLocale::c();
    return QCoreApplication::translate(
               "FileSafety", "There is not enough free space in %1: %2 are needed and %3 are free.")
        .arg(
            QDir::toNativeSeparators(folder),
            locale.formattedDataSize(neededBytes, 1, QLocale::DataSizeSIFormat),
            locale.formattedDataSize(std::max<qint64>(freeBytes, 0), 1, QLocale::DataSizeSIFormat));
}

void FileSafety::requireFreeSpace(const QString& folder, qint64 neededBytes, qint64 marginBytes) {
    const qint64 available = freeBytes(folder);
    if (available < 0)
        return;
    const qint64 needed = std::max<qint64>(neededBytes, 0) + marginBytes;
    if (available < needed)
        throw LaunchError::file(notEnoughSpaceText(folder, needed, available));
}
