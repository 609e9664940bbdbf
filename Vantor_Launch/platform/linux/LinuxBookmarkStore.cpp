#include "platform/linux/LinuxBookmarkStore.h"

#include <QDir>
#include <QFileInfo>

std::optional<QByteArray> LinuxBookmarkStore::createBookmark(const QUrl& bundle) {
    const QFileInfo info(bundle.toLocalFile());
    if (!bundle.isLocalFile() || !info.isDir())
        return std::nullopt;
    return QDir::cleanPath(info.absoluteFilePath()).toUtf8();
}

std::optional<BookmarkStore::Resolution> LinuxBookmarkStore::resolve(const QByteArray& bookmark) {
    const QString path = QString::fromUtf8(bookmark);
    if (path.isEmpty() || !QDir::isAbsolutePath(path))
        return std::nullopt;
    // A bundle that is gone, or is no longer a folder, is reported stale rather than unknown.
    return Resolution{QUrl::fromLocalFile(path), !QFileInfo(path).isDir()};
}

void LinuxBookmarkStore::startAccessing(const QUrl&) {
    // Nothing to grant: ordinary file permissions already apply.
}
