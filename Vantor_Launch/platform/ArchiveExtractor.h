#pragma once

#include <QString>
#include <QtGlobal>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>

// A file that a download is still writing, as the extractor reads it: the download says when the
// file is whole or when it gave up, and the reader waits for bytes that have not arrived yet.
// Thread-safe.
class GrowingFile {
public:
    enum class State { growing, whole, abandoned };

    // The download wrote its last byte: what the file holds now is all it will hold.
    void finish() { settle(State::whole); }
    // The download failed or was stopped: the reader gives up at once.
    void abandon() { settle(State::abandoned); }

    State state() const {
        const std::lock_guard lock(m_mutex);
        return m_state;
    }
    // Waits until the download ends or at most `wait`; the state then. Readers poll the file
    // between waits, so that bytes written meanwhile are seen without the writer's word.
    State waitFor(std::chrono::milliseconds wait) const {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, wait, [this] { return m_state != State::growing; });
        return m_state;
    }

private:
    void settle(State state) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_state == State::growing)
                m_state = state;
        }
        m_changed.notify_all();
    }

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    State m_state = State::growing;
};

// Unpacks a downloaded zip archive. Everything in it is hostile until proved otherwise: an entry
// that would land outside the destination, a link that points out of it, or an archive larger than
// the ceilings below makes the whole archive unusable.
class ArchiveExtractor {
public:
    // Generous enough for any release of the applications; small enough that an archive bomb
    // cannot fill the disk or exhaust inodes.
    static constexpr qint64 maximumTotalBytes = qint64(16) * 1024 * 1024 * 1024;
    static constexpr qint64 maximumEntries = 250'000;

    // Called between blocks with the bytes unpacked so far, and while the extractor waits for a
    // growing file. It may throw (a cancel, a disk that is filling up) to stop the unpacking; the
    // exception passes through.
    using Checkpoint = std::function<void(qint64 unpackedBytes)>;

    // How unpacking a growing archive ended.
    enum class Streamed {
        unpacked,
        // Damaged, beyond a ceiling, or an entry that escapes: no other way of reading it helps.
        refused,
        // What the entries' own headers say disagrees with the archive's directory at its end (or
        // cannot be read without it): the caller unpacks the whole archive with extract() instead,
        // into an empty destination.
        needsWholeArchive,
    };

    virtual ~ArchiveExtractor() = default;

    // Unpacks archive into destination, an existing empty folder, the way the archive's directory
    // describes it. False when the archive is damaged, exceeds a ceiling or holds an entry that
    // escapes destination; what was written until then stays for the caller to remove. Throws
    // LaunchError when destination cannot be written (disk full, no permission), and what
    // checkpoint throws. Blocks: call it from a worker thread.
    virtual bool extract(const QString& archive, const QString& destination,
                         const Checkpoint& checkpoint = {}) const = 0;

    // Unpacks archive into destination while a download is still writing it, each entry as soon
    // as its bytes are there, under the same guards as extract(). Returns once the file is whole
    // and its directory agrees with what was unpacked, or sooner when the archive is refused or
    // the file is abandoned (refused then). Throws as extract() does. Blocks: call it from a
    // worker thread.
    virtual Streamed extractGrowing(const QString& archive, const GrowingFile& growth,
                                    const QString& destination,
                                    const Checkpoint& checkpoint = {}) const = 0;

    // What the archive's entries say they unpack to, read from its directory without unpacking;
    // nullopt when the archive cannot be read. For the space check only: extract() counts what it
    // really writes. Blocks: call it from a worker thread.
    virtual std::optional<qint64> unpackedSize(const QString& archive) const = 0;
};
