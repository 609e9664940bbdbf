#include "platform/linux/LibarchiveExtractor.h"

#include "foundation/LaunchError.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSet>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

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
    throw LaunchError::file(
        QCoreApplication::translate("LibarchiveExtractor",
                                    "The update could not be unpacked into %1: %2")
            .arg(destination, QString::fromLocal8Bit(std::strerror(error))));
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

namespace {

// One entry as a reader saw it.
struct EntryInfo {
    QByteArray name;
    unsigned type = 0;
    unsigned perm = 0;
    qint64 size = 0;   // of a file's data
    QByteArray target; // of a link
};

// The entries one reader yields, unpacked under root with every guard.
class Unpacker {
public:
    enum class Result { unpacked, refused, unreadable };

    Unpacker(archive* reader, const QString& root, const QString& destination, qint64 byteCeiling,
             qint64 entryCeiling, const ArchiveExtractor::Checkpoint& checkpoint)
        : m_reader(reader)
        , m_rootBytes(QFile::encodeName(root))
        , m_destination(destination)
        , m_byteCeiling(byteCeiling)
        , m_entryCeiling(entryCeiling)
        , m_checkpoint(checkpoint) {}

    qint64 unpackedBytes() const { return m_totalBytes; }
    // What was unpacked, entry by entry in order.
    const std::vector<EntryInfo>& seen() const { return m_seen; }

    Result run() {
        const std::unique_ptr<archive, WriterDeleter> writer(archive_write_disk_new());
        // Entry names are checked below and then made absolute under root (so no absolute-path
        // refusal here); libarchive still refuses ".." and writing through a link, as a second
        // line.
        archive_write_disk_set_options(writer.get(), ARCHIVE_EXTRACT_PERM |
                                                         ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                                         ARCHIVE_EXTRACT_SECURE_SYMLINKS);
        qint64 entries = 0;
        archive_entry* entry = nullptr;
        for (;;) {
            const int status = archive_read_next_header(m_reader, &entry);
            if (status == ARCHIVE_EOF)
                break;
            if (status != ARCHIVE_OK) {
                qCInfo(lcExtractor) << "Unreadable archive:" << archive_error_string(m_reader);
                return Result::unreadable;
            }
            if (++entries > m_entryCeiling) {
                qCInfo(lcExtractor) << "The archive holds more than" << m_entryCeiling << "entries";
                return Result::refused;
            }

            const QByteArray name(archive_entry_pathname(entry) ? archive_entry_pathname(entry)
                                                                : "");
            const auto type = archive_entry_filetype(entry);
            const auto perm = archive_entry_perm(entry);
            QByteArray target;
            if (!LibarchiveExtractor::isContainedName(name) ||
                archive_entry_hardlink(entry) != nullptr ||
                (type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK)) {
                qCInfo(lcExtractor) << "Refused the archive entry" << name;
                return Result::refused;
            }
            if (type == AE_IFLNK) {
                const char* link = archive_entry_symlink(entry);
                target = QByteArray(link ? link : "");
                if (!link || !LibarchiveExtractor::linkStaysInside(name, target)) {
                    qCInfo(lcExtractor) << "Refused the link" << name << "->" << link;
                    return Result::refused;
                }
            }

            archive_entry_set_pathname(entry, QByteArray(m_rootBytes + '/' + name).constData());
            // Set-id and sticky bits never come from a download; folders stay ours to clean up.
            archive_entry_set_perm(entry, (perm & 0777) | (type == AE_IFDIR ? 0700 : 0));
            if (archive_write_header(writer.get(), entry) != ARCHIVE_OK) {
                throwIfDestinationFault(writer.get());
                qCInfo(lcExtractor)
                    << "Could not write" << name << archive_error_string(writer.get());
                return Result::refused;
            }

            const qint64 before = m_totalBytes;
            const void* block = nullptr;
            size_t size = 0;
            la_int64_t offset = 0;
            for (;;) {
                const int read = archive_read_data_block(m_reader, &block, &size, &offset);
                if (read == ARCHIVE_EOF)
                    break;
                if (read != ARCHIVE_OK) {
                    qCInfo(lcExtractor)
                        << "Unreadable entry" << name << archive_error_string(m_reader);
                    return Result::unreadable;
                }
                // Counted as written, not as declared: a header can lie about its size.
                m_totalBytes += qint64(size);
                if (m_totalBytes > m_byteCeiling) {
                    qCInfo(lcExtractor)
                        << "The archive unpacks to more than" << m_byteCeiling << "bytes";
                    return Result::refused;
                }
                if (archive_write_data_block(writer.get(), block, size, offset) != ARCHIVE_OK) {
                    throwIfDestinationFault(writer.get());
                    qCInfo(lcExtractor) << "Could not write" << name;
                    return Result::refused;
                }
                if (m_checkpoint)
                    m_checkpoint(m_totalBytes);
            }
            if (archive_write_finish_entry(writer.get()) != ARCHIVE_OK) {
                throwIfDestinationFault(writer.get());
                return Result::refused;
            }
            m_seen.push_back({name, unsigned(type), unsigned(perm), m_totalBytes - before, target});
        }
        if (archive_write_close(writer.get()) != ARCHIVE_OK)
            return Result::refused;
        return everyLinkResolvesInside(QFile::decodeName(m_rootBytes)) ? Result::unpacked
                                                                       : Result::refused;
    }

private:
    void throwIfDestinationFault(archive* writer) const {
        const int error = archive_errno(writer);
        if (isDestinationFault(error))
            throwDestinationFault(m_destination, error);
    }

    archive* m_reader;
    QByteArray m_rootBytes;
    QString m_destination;
    qint64 m_byteCeiling;
    qint64 m_entryCeiling;
    const ArchiveExtractor::Checkpoint& m_checkpoint;
    qint64 m_totalBytes = 0;
    std::vector<EntryInfo> m_seen;
};

// The archive's bytes as a download writes them: a read at the current end of the file waits
// for more until the download has ended.
struct GrowingSource {
    static constexpr std::chrono::milliseconds pollInterval{10};

    int descriptor = -1;
    const GrowingFile* growth = nullptr;
    const ArchiveExtractor::Checkpoint* checkpoint = nullptr;
    const Unpacker* unpacker = nullptr;
    bool wholeSeen = false;
    // What the checkpoint threw, to be rethrown once libarchive has returned.
    std::exception_ptr failure;
    QByteArray buffer = QByteArray(1 << 20, Qt::Uninitialized);

    ~GrowingSource() {
        if (descriptor >= 0)
            ::close(descriptor);
    }

    // The checkpoint, without letting an exception through libarchive's C frames.
    bool checkpointPasses() {
        if (!*checkpoint)
            return true;
        try {
            (*checkpoint)(unpacker ? unpacker->unpackedBytes() : 0);
            return true;
        } catch (...) {
            failure = std::current_exception();
            return false;
        }
    }

    // Waits until the download ends; false when it was abandoned or the checkpoint threw.
    bool waitUntilWhole() {
        for (;;) {
            const auto state = growth->waitFor(pollInterval);
            if (state == GrowingFile::State::abandoned || !checkpointPasses())
                return false;
            if (state == GrowingFile::State::whole)
                return true;
        }
    }

    static la_ssize_t read(archive* reader, void* data, const void** block) {
        auto* source = static_cast<GrowingSource*>(data);
        *block = source->buffer.constData();
        for (;;) {
            const ssize_t count =
                ::read(source->descriptor, source->buffer.data(), size_t(source->buffer.size()));
            if (count > 0)
                return count;
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0) {
                archive_set_error(reader, errno, "The archive could not be read");
                return ARCHIVE_FATAL;
            }
            // At the end of what is written so far.
            if (source->wholeSeen)
                return 0;
            const auto state = source->growth->waitFor(pollInterval);
            if (state == GrowingFile::State::abandoned || !source->checkpointPasses()) {
                archive_set_error(reader, ECANCELED, "The download ended early");
                return ARCHIVE_FATAL;
            }
            // Everything was written before the download said so: one more read sees it all.
            source->wholeSeen = state == GrowingFile::State::whole;
        }
    }
};

// The archive as its directory describes it, entry by entry in the order of their data, read
// without inflating anything; none when the directory cannot be read.
std::optional<std::vector<EntryInfo>> directoryEntries(const QString& archivePath,
                                                       qint64 entryCeiling) {
    const std::unique_ptr<archive, ReaderDeleter> reader(archive_read_new());
    archive_read_support_format_zip_seekable(reader.get());
    if (archive_read_open_filename(reader.get(), QFile::encodeName(archivePath).constData(),
                                   1 << 16) != ARCHIVE_OK)
        return std::nullopt;
    std::vector<EntryInfo> entries;
    archive_entry* entry = nullptr;
    for (;;) {
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            return entries;
        if (status != ARCHIVE_OK || qint64(entries.size()) >= entryCeiling)
            return std::nullopt;
        const char* name = archive_entry_pathname(entry);
        const char* target = archive_entry_symlink(entry);
        entries.push_back({QByteArray(name ? name : ""), unsigned(archive_entry_filetype(entry)),
                           unsigned(archive_entry_perm(entry)),
                           archive_entry_size_is_set(entry) ? archive_entry_size(entry) : -1,
                           QByteArray(target ? target : "")});
    }
}

enum class Completion { completed, refused, disagrees };

// The entries' own headers may lack what only the directory records: permissions, and which
// entries are links (unpacked as files holding their target). Once the directory is there, it
// completes what was unpacked, provided that both tell the same story of names, kinds and
// sizes; anything else is left to unpacking the whole archive.
Completion completeFromDirectory(const QByteArray& root, const std::vector<EntryInfo>& streamed,
                                 const std::vector<EntryInfo>& directory) {
    if (streamed.size() != directory.size())
        return Completion::disagrees;
    QSet<QByteArray> names;
    for (size_t index = 0; index < streamed.size(); ++index) {
        const EntryInfo& seen = streamed[index];
        const EntryInfo& listed = directory[index];
        if (seen.name != listed.name || names.contains(seen.name))
            return Completion::disagrees;
        names.insert(seen.name);
        const bool agrees =
            listed.type == AE_IFDIR ? seen.type == AE_IFDIR
            : listed.type == AE_IFREG
                ? seen.type == AE_IFREG && seen.size == listed.size
                : listed.type == AE_IFLNK &&
                      (seen.type == AE_IFLNK
                           ? seen.target == listed.target
                           : seen.type == AE_IFREG && seen.size == listed.target.size());
        if (!agrees)
            return Completion::disagrees;
    }
    // Permissions first, while no entry has become a link that a path could pass through.
    for (const EntryInfo& listed : directory) {
        if (listed.type == AE_IFLNK)
            continue;
        const mode_t mode = (listed.perm & 0777) | (listed.type == AE_IFDIR ? 0700 : 0);
        if (::chmod(QByteArray(root + '/' + listed.name).constData(), mode) != 0)
            return Completion::disagrees;
    }
    for (size_t index = 0; index < directory.size(); ++index) {
        const EntryInfo& listed = directory[index];
        if (listed.type != AE_IFLNK || streamed[index].type == AE_IFLNK)
            continue;
        if (!LibarchiveExtractor::linkStaysInside(listed.name, listed.target)) {
            qCInfo(lcExtractor) << "Refused the link" << listed.name << "->" << listed.target;
            return Completion::refused;
        }
        const QByteArray path = root + '/' + listed.name;
        QFile written(QFile::decodeName(path));
        if (!written.open(QIODevice::ReadOnly) || written.readAll() != listed.target)
            return Completion::disagrees;
        written.close();
        if (::unlink(path.constData()) != 0 ||
            ::symlink(listed.target.constData(), path.constData()) != 0)
            return Completion::disagrees;
    }
    return Completion::completed;
}

QString existingRoot(const QString& destination) {
    const QString root = QFileInfo(destination).canonicalFilePath();
    if (root.isEmpty())
        throw LaunchError::file(
            QCoreApplication::translate("LibarchiveExtractor", "The folder %1 does not exist.")
                .arg(destination));
    return root;
}

} // namespace

bool LibarchiveExtractor::extract(const QString& archivePath, const QString& destination,
                                  const Checkpoint& checkpoint) const {
    const QString root = existingRoot(destination);
    const std::unique_ptr<archive, ReaderDeleter> reader(archive_read_new());
    // The directory at the end is the archive's own account of its entries, the one that tools
    // like unzip follow: links and modes are recorded there.
    archive_read_support_format_zip_seekable(reader.get());
    if (archive_read_open_filename(reader.get(), QFile::encodeName(archivePath).constData(),
                                   1 << 16) != ARCHIVE_OK) {
        qCInfo(lcExtractor) << "Not a readable archive:" << archive_error_string(reader.get());
        return false;
    }
    Unpacker unpacker(reader.get(), root, destination, m_totalBytesCeiling, m_entryCeiling,
                      checkpoint);
    return unpacker.run() == Unpacker::Result::unpacked;
}

ArchiveExtractor::Streamed LibarchiveExtractor::extractGrowing(const QString& archivePath,
                                                               const GrowingFile& growth,
                                                               const QString& destination,
                                                               const Checkpoint& checkpoint) const {
    const QString root = existingRoot(destination);
    GrowingSource source;
    source.growth = &growth;
    source.checkpoint = &checkpoint;
    source.descriptor = ::open(QFile::encodeName(archivePath).constData(), O_RDONLY | O_CLOEXEC);
    if (source.descriptor < 0)
        throw LaunchError::file(
            QCoreApplication::translate("LibarchiveExtractor",
                                        "The download %1 could not be read: %2")
                .arg(archivePath, QString::fromLocal8Bit(std::strerror(errno))));

    const std::unique_ptr<archive, ReaderDeleter> reader(archive_read_new());
    // Entries one after the other, as their own headers describe them.
    archive_read_support_format_zip_streamable(reader.get());
    Unpacker unpacker(reader.get(), root, destination, m_totalBytesCeiling, m_entryCeiling,
                      checkpoint);
    source.unpacker = &unpacker;
    const auto passedOn = [&](Streamed outcome) {
        if (source.failure)
            std::rethrow_exception(source.failure);
        if (growth.state() == GrowingFile::State::abandoned)
            return Streamed::refused;
        return outcome;
    };
    if (archive_read_open(reader.get(), &source, nullptr, &GrowingSource::read, nullptr) !=
        ARCHIVE_OK) {
        qCInfo(lcExtractor) << "Not a readable stream:" << archive_error_string(reader.get());
        return passedOn(source.waitUntilWhole() ? Streamed::needsWholeArchive : Streamed::refused);
    }
    const Unpacker::Result result = unpacker.run();
    if (result == Unpacker::Result::refused)
        return passedOn(Streamed::refused);
    // The rest of the file is the directory; once it is there, it must tell the same story.
    if (!source.waitUntilWhole())
        return passedOn(Streamed::refused);
    if (result == Unpacker::Result::unreadable)
        return passedOn(Streamed::needsWholeArchive);
    const auto listed = directoryEntries(archivePath, m_entryCeiling);
    if (!listed)
        return passedOn(Streamed::refused);
    switch (completeFromDirectory(QFile::encodeName(root), unpacker.seen(), *listed)) {
    case Completion::refused:
        return passedOn(Streamed::refused);
    case Completion::disagrees:
        qCInfo(lcExtractor) << "The archive's directory differs from its entries";
        return passedOn(Streamed::needsWholeArchive);
    case Completion::completed:
        break;
    }
    if (!everyLinkResolvesInside(root))
        return passedOn(Streamed::refused);
    return passedOn(Streamed::unpacked);
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
