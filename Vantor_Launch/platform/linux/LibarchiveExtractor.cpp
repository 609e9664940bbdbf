#include "platform/linux/LibarchiveExtractor.h"

#include "foundation/LaunchError.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QLoggingCategory>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcExtractor, "vantor.platform.extractor")

namespace {

struct ReaderDeleter {
    void operator()(archive* reader) const { archive_read_free(reader); }
};
struct WriterDeleter {
    void operator()(archive* writer) const { archive_write_free(writer); }
};

// The write errors that are the destination's fault, not the archive's: they pass through.
bool isDestinationFault(int error) {
    return error == ENOSPC || error == EDQUOT || error == EROFS || error == EACCES ||
           error == EPERM || error == EIO;
}

[[noreturn]] void throwDestinationFault(const QString& destination, int error) {
    throw LaunchError::file(u"The update could not be unpacked into %1: %2"_s.arg(
        destination, QString::fromLocal8Bit(std::strerror(error))));
}

QList<QByteArray> components(const QByteArray& path) {
    QList<QByteArray> parts;
    for (const QByteArray& part : path.split('/')) {
        if (!part.isEmpty() && part != ".")
            parts.append(part);
    }
    return parts;
}

// Every link, followed through the tree as written, must end at something inside root. Checked
// after extraction because a chain of links can leave the folder even when each text looks
// harmless ("a" -> ".", "b" -> "a/../x").
bool everyLinkResolvesInside(const QString& root) {
    const QString canonicalRoot = QFileInfo(root).canonicalFilePath();
    QDirIterator entries(root,
                         QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        entries.next();
        const QFileInfo info = entries.fileInfo();
        if (!info.isSymLink())
            continue;
        const QString resolved = info.canonicalFilePath();
        if (resolved.isEmpty() ||
            (resolved != canonicalRoot && !resolved.startsWith(canonicalRoot + u'/'))) {
            qCInfo(lcExtractor) << "Refused a link that leads out of the archive:"
                                << info.filePath();
            return false;
        }
    }
    return true;
}

} // namespace

LibarchiveExtractor::LibarchiveExtractor(qint64 totalBytesCeiling, qint64 entryCeiling)
    : m_totalBytesCeiling(totalBytesCeiling)
    , m_entryCeiling(entryCeiling) {}

bool LibarchiveExtractor::isContainedName(const QByteArray& entryPath) {
    if (entryPath.isEmpty() || entryPath.startsWith('/'))
        return false;
    for (const QByteArray& part : entryPath.split('/')) {
        if (part == "..")
            return false;
    }
    return true;
}

bool LibarchiveExtractor::linkStaysInside(const QByteArray& entryPath, const QByteArray& target) {
    if (target.isEmpty() || target.startsWith('/'))
        return false;
    QList<QByteArray> resolved = components(entryPath);
    if (resolved.isEmpty())
        return false;
    resolved.removeLast(); // the link itself; its target is read from its folder
    for (const QByteArray& part : components(target)) {
        if (part != "..") {
            resolved.append(part);
        } else if (resolved.isEmpty()) {
            return false;
        } else {
            resolved.removeLast();
        }
    }
    return true;
}

bool LibarchiveExtractor::extract(const QString& archivePath, const QString& destination) const {
    const QString root = QFileInfo(destination).canonicalFilePath();
    if (root.isEmpty())
        throw LaunchError::file(u"The folder %1 does not exist."_s.arg(destination));

    const std::unique_ptr<archive, ReaderDeleter> reader(archive_read_new());
    archive_read_support_format_zip(reader.get());
    const std::unique_ptr<archive, WriterDeleter> writer(archive_write_disk_new());
    // Entry names are checked below and then made absolute under root (so no absolute-path
    // refusal here); libarchive still refuses ".." and writing through a link, as a second line.
    archive_write_disk_set_options(writer.get(), ARCHIVE_EXTRACT_PERM |
                                                     ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                                     ARCHIVE_EXTRACT_SECURE_SYMLINKS);

    if (archive_read_open_filename(reader.get(), QFile::encodeName(archivePath).constData(),
                                   1 << 16) != ARCHIVE_OK) {
        qCInfo(lcExtractor) << "Not a readable archive:" << archive_error_string(reader.get());
        return false;
    }

    const QByteArray rootBytes = QFile::encodeName(root);
    qint64 entries = 0;
    qint64 totalBytes = 0;
    archive_entry* entry = nullptr;
    for (;;) {
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status != ARCHIVE_OK) {
            qCInfo(lcExtractor) << "Damaged archive:" << archive_error_string(reader.get());
            return false;
        }
        if (++entries > m_entryCeiling) {
            qCInfo(lcExtractor) << "The archive holds more than" << m_entryCeiling << "entries";
            return false;
        }

        const QByteArray name(archive_entry_pathname(entry) ? archive_entry_pathname(entry) : "");
        const auto type = archive_entry_filetype(entry);
        if (!isContainedName(name) || archive_entry_hardlink(entry) != nullptr ||
            (type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK)) {
            qCInfo(lcExtractor) << "Refused the archive entry" << name;
            return false;
        }
        if (type == AE_IFLNK) {
            const char* target = archive_entry_symlink(entry);
            if (!target || !linkStaysInside(name, QByteArray(target))) {
                qCInfo(lcExtractor) << "Refused the link" << name << "->" << target;
                return false;
            }
        }

        archive_entry_set_pathname(entry, QByteArray(rootBytes + '/' + name).constData());
        // Set-id and sticky bits never come from a download; folders stay ours to clean up.
        archive_entry_set_perm(entry,
                               (archive_entry_perm(entry) & 0777) | (type == AE_IFDIR ? 0700 : 0));
        if (archive_write_header(writer.get(), entry) != ARCHIVE_OK) {
            const int error = archive_errno(writer.get());
            if (isDestinationFault(error))
                throwDestinationFault(destination, error);
            qCInfo(lcExtractor) << "Could not write" << name << archive_error_string(writer.get());
            return false;
        }

        const void* block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        for (;;) {
            const int read = archive_read_data_block(reader.get(), &block, &size, &offset);
            if (read == ARCHIVE_EOF)
                break;
            if (read != ARCHIVE_OK) {
                qCInfo(lcExtractor)
                    << "Damaged entry" << name << archive_error_string(reader.get());
                return false;
            }
            // Counted as written, not as declared: a header can lie about its size.
            totalBytes += qint64(size);
            if (totalBytes > m_totalBytesCeiling) {
                qCInfo(lcExtractor)
                    << "The archive unpacks to more than" << m_totalBytesCeiling << "bytes";
                return false;
            }
            if (archive_write_data_block(writer.get(), block, size, offset) != ARCHIVE_OK) {
                const int error = archive_errno(writer.get());
                if (isDestinationFault(error))
                    throwDestinationFault(destination, error);
                qCInfo(lcExtractor) << "Could not write" << name;
                return false;
            }
        }
        if (archive_write_finish_entry(writer.get()) != ARCHIVE_OK) {
            const int error = archive_errno(writer.get());
            if (isDestinationFault(error))
                throwDestinationFault(destination, error);
            return false;
        }
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK)
        return false;
    return everyLinkResolvesInside(root);
}

std::optional<qint64> LibarchiveExtractor::unpackedSize(const QString& archivePath) const {
    const std::unique_ptr<archive, ReaderDeleter> reader(archive_read_new());
    // The seekable reader takes the sizes from the zip's central directory: nothing is inflated.
    archive_read_support_format_zip_seekable(reader.get());
    if (archive_read_open_filename(reader.get(), QFile::encodeName(archivePath).constData(),
                                   1 << 16) != ARCHIVE_OK)
        return std::nullopt;
    qint64 total = 0;
    qint64 entries = 0;
    archive_entry* entry = nullptr;
    for (;;) {
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            return total;
        if (status != ARCHIVE_OK || ++entries > m_entryCeiling)
            return std::nullopt;
        if (archive_entry_size_is_set(entry))
            total += std::max<la_int64_t>(archive_entry_size(entry), 0);
        if (total > m_totalBytesCeiling)
            return total;
    }
}
