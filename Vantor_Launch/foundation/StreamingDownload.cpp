#include "foundation/StreamingDownload.h"

#include "foundation/FileSafety.h"
#include "foundation/HttpsBodyReceiver.h"
#include "foundation/TrustingNetworkAccessManager.h"
#include "foundation/Worker.h"

#include <QCoreApplication>
#include <QCoroFuture>
#include <QFile>
#include <QTimer>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// How often the main thread passes on the progress of a running transfer.
constexpr int progressMilliseconds = 200;
// A durable file is pushed to the disk every this many bytes, so that the final flush finds
// little left to write, and the window before is let go of once on the disk: a large file then
// passes through a few megabytes of cache used again and again, not through fresh memory.
constexpr qint64 writeBackBytes = 8 * 1024 * 1024;

// The file being written, touched by one thread at a time: a worker opens, finishes and closes
// it, and the receiving thread of each request appends to it.
struct Sink {
    int descriptor = -1;
    EVP_MD_CTX* digest = nullptr;
    int error = 0;
    bool durable = false;
    qint64 written = 0;
    qint64 writtenBack = 0;
    qint64 settled = 0;

    ~Sink() {
        close();
        EVP_MD_CTX_free(digest);
    }

    bool open(const QString& path, bool hash, bool durable_) {
        durable = durable_;
        descriptor = ::open(QFile::encodeName(path).constData(),
                            O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (descriptor < 0) {
            error = errno;
            return false;
        }
        if (hash) {
            digest = EVP_MD_CTX_new();
            if (!digest || EVP_DigestInit_ex(digest, EVP_sha256(), nullptr) != 1) {
                error = ENOMEM;
                return false;
            }
        }
        return true;
    }
    bool append(const char* data, qint64 size) {
        qint64 offset = 0;
        while (offset < size) {
            const ssize_t count = ::write(descriptor, data + offset, size_t(size - offset));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0) {
                error = count < 0 ? errno : ENOSPC;
                return false;
            }
            offset += count;
        }
        written += size;
        if (digest && EVP_DigestUpdate(digest, data, size_t(size)) != 1) {
            error = EIO;
            return false;
        }
#ifdef __linux__
        // Starts the write-back of this window without waiting for it; the last window has had
        // its time, and what is left of it is waited for.
        if (durable && written - writtenBack >= writeBackBytes) {
            if (writtenBack > settled) {
                ::sync_file_range(descriptor, settled, writtenBack - settled,
                                  SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE |
                                      SYNC_FILE_RANGE_WAIT_AFTER);
                ::posix_fadvise(descriptor, settled, writtenBack - settled, POSIX_FADV_DONTNEED);
                settled = writtenBack;
            }
            ::sync_file_range(descriptor, writtenBack, written - writtenBack,
                              SYNC_FILE_RANGE_WRITE);
            writtenBack = written;
        }
#endif
        return true;
    }
    // An empty file and a new digest, for a body that starts over.
    bool restart() {
        if (::ftruncate(descriptor, 0) != 0 || ::lseek(descriptor, 0, SEEK_SET) != 0) {
            error = errno;
            return false;
        }
        written = writtenBack = settled = 0;
        if (digest && EVP_DigestInit_ex(digest, EVP_sha256(), nullptr) != 1) {
            error = ENOMEM;
            return false;
        }
        return true;
    }
    std::optional<QString> finish() {
        if (error != 0)
            return std::nullopt;
        if ((durable && ::fsync(descriptor) != 0) || ::close(descriptor) != 0) {
            error = errno;
            descriptor = -1;
            return std::nullopt;
        }
        descriptor = -1;
        if (!digest)
            return QString();
        unsigned char value[EVP_MAX_MD_SIZE];
        unsigned int length = 0;
        if (EVP_DigestFinal_ex(digest, value, &length) != 1) {
            error = EIO;
            return std::nullopt;
        }
        return QString::fromLatin1(
            QByteArray(reinterpret_cast<const char*>(value), int(length)).toHex());
    }
    void close() {
        if (descriptor >= 0)
            ::close(descriptor);
        descriptor = -1;
    }
};

LaunchError notWritten(const QString& path, int error) {
    return LaunchError::file(QCoreApplication::translate(
                                 "StreamingDownload", "The download could not be saved to %1: %2")
                                 .arg(path, FileSafety::errorText(error ? error : EIO)));
}

// What one request's body may still hand on, set by the main thread before the body proceeds and
// read by the receiving thread after.
struct Budget {
    // -1: no bound.
    qint64 allowed = -1;
    qint64 taken = 0;
    bool exceeded = false;
};

// The body into the sink, across resumptions; the bytes received. Each request's thread has
// ended before the next starts and before this returns or throws, so that nothing of it touches
// the file afterwards.
QCoro::Task<qint64> receive(QByteArray authorities, QUrl url, QString filePath,
                            const StreamingDownload::Options& options, std::shared_ptr<Sink> sink) {
    const auto tooLarge = [&options] {
        return options.tooLarge ? options.tooLarge()
                                : LaunchError::url(LaunchError::badServerResponse);
    };
    // Of the whole file, whichever answer brought the bytes.
    qint64 received = 0;
    qint64 announced = -1;
    // What a resumption names in If-Range; empty: the transfer cannot resume.
    QByteArray validator;
    int resumptionsLeft = options.resumeAttempts;
    bool resuming = false;
    for (;;) {
        // A cancellation between two requests reaches neither.
        if (options.cancellation)
            options.cancellation->throwIfCancelled();
        HttpsBodyReceiver::Request request;
        request.url = url;
        request.background = options.background;
        request.authorities = authorities;
        request.stallMilliseconds = options.limits.stallMilliseconds;
        request.floorBytes = options.limits.floorBytes;
        request.floorWindowMilliseconds = options.limits.floorWindowMilliseconds;
        // Offsets and lengths must count the file's own bytes, never a compressed form of them.
        request.headers.append(
            {QByteArrayLiteral("Accept-Encoding"), QByteArrayLiteral("identity")});
        if (resuming) {
            request.headers.append(
                {QByteArrayLiteral("Range"), "bytes=" + QByteArray::number(received) + '-'});
            request.headers.append({QByteArrayLiteral("If-Range"), validator});
        }
        const auto budget = std::make_shared<Budget>();
        HttpsBodyReceiver receiver(
            std::move(request), [sink, budget](const char* data, qint64 size) {
                if (budget->allowed >= 0 && budget->taken + size > budget->allowed) {
                    budget->exceeded = true;
                    return false;
                }
                budget->taken += size;
                return sink->append(data, size);
            });
        // Ends the connections below with this request.
        QObject requestScope;
        if (options.cancellation)
            QObject::connect(options.cancellation.get(), &Cancellation::cancelled, &requestScope,
                             [&receiver] { receiver.abort(); });
        QTimer reporter;
        reporter.setInterval(progressMilliseconds);

        bool headSeen = false;
        const auto decide = [&](const HttpsBodyReceiver::Head& head) -> QCoro::Task<> {
            headSeen = true;
            const int code = head.status;
            if (resuming && code == 206) {
                if (!head.continuesAt(received, announced))
                    throw LaunchError::url(LaunchError::badServerResponse);
            } else if (resuming && code == 416) {
                throw LaunchError::url(LaunchError::badServerResponse);
            } else if (code < 200 || code > 299) {
                // An error page is never written, however long it is, and means the same
                // whether or not it answers a resumption (a session that ended, say).
                if (options.refused)
                    throw options.refused(code);
                throw LaunchError::url(LaunchError::badServerResponse);
            } else if (resuming && code != 200) {
                throw LaunchError::url(LaunchError::badServerResponse);
            } else {
                // The file from its start: the first answer, or a resumption that found the
                // file changed (or a server that ignores ranges).
                if (resuming) {
                    QCoro::Task<bool> emptying = Worker::run([sink] { return sink->restart(); });
                    if (!co_await std::move(emptying))
                        throw notWritten(filePath, sink->error);
                    received = 0;
                }
                announced = head.contentLength;
                validator = code == 200 ? head.resumeValidator() : QByteArray();
                if (announced >= 0 && options.maximumBytes > 0 && announced > options.maximumBytes)
                    throw tooLarge();
                if (options.accept)
                    options.accept(announced);
                if (resuming && options.progress)
                    options.progress(received, announced);
            }
            qint64 bound = options.maximumBytes > 0 ? options.maximumBytes : -1;
            if (announced >= 0)
                bound = bound < 0 ? announced : std::min(bound, announced);
            budget->allowed = bound < 0 ? -1 : bound - received;
            if (options.progress) {
                QObject::connect(&reporter, &QTimer::timeout, [&] {
                    options.progress(received + receiver.received(), announced);
                });
                reporter.start();
            }
        };
        QCoro::Task<HttpsBodyReceiver::Outcome> settling = receiver.settle(decide);
        const HttpsBodyReceiver::Outcome outcome = co_await std::move(settling);
        reporter.stop();
        if (options.cancellation)
            options.cancellation->throwIfCancelled();
        received += outcome.received;

        using Ending = HttpsBodyReceiver::Ending;
        if (outcome.ending == Ending::aborted)
            throw LaunchError::url(LaunchError::cancelled);
        if (outcome.ending == Ending::stalled)
            throw LaunchError::url(LaunchError::timedOut);
        if (outcome.ending == Ending::refused)
            throw budget->exceeded ? tooLarge() : notWritten(filePath, sink->error);
        const bool complete = announced < 0 || received == announced;
        if (outcome.ending == Ending::complete && complete)
            break;
        // A body cut short, with or without an error to say so.
        const bool dropped = headSeen && (outcome.ending == Ending::complete ||
                                          outcome.error == LaunchError::networkConnectionLost);
        // Only new bytes earn another request: a connection that drops at once ends it.
        if (dropped && outcome.received > 0 && !validator.isEmpty() && announced >= 0 &&
            resumptionsLeft > 0) {
            --resumptionsLeft;
            resuming = true;
            if (options.progress)
                options.progress(received, announced);
            continue;
        }
        if (outcome.ending == Ending::failed && outcome.error != LaunchError::unknown)
            throw LaunchError::url(outcome.error);
        if (!headSeen)
            throw LaunchError::url(LaunchError::badServerResponse);
        throw LaunchError::url(LaunchError::networkConnectionLost);
    }

    if (options.progress)
        options.progress(received, announced);
    co_return received;
}

} // namespace

QCoro::Task<StreamingDownload::Result>
StreamingDownload::fetch(std::shared_ptr<QNetworkAccessManager> network, QUrl url, QString filePath,
                         Options options) {
    if (url.scheme() != u"https"_s)
        throw LaunchError::url(LaunchError::unsupportedURL);

    const auto sink = std::make_shared<Sink>();
    QCoro::Task<bool> opening =
        Worker::run([sink, filePath, hash = options.hash, durable = options.durable] {
            return sink->open(filePath, hash, durable);
        });
    if (!co_await std::move(opening))
        throw notWritten(filePath, sink->error);
    std::exception_ptr failure;
    try {
        QCoro::Task<qint64> receiving = receive(
            TrustingNetworkAccessManager::authoritiesPemOf(*network), url, filePath, options, sink);
        const qint64 received = co_await std::move(receiving);
        QCoro::Task<std::optional<QString>> finishing =
            Worker::run([sink] { return sink->finish(); });
        const std::optional<QString> digest = co_await std::move(finishing);
        if (!digest)
            throw notWritten(filePath, sink->error);
        co_return Result{received, *digest};
    } catch (...) {
        failure = std::current_exception();
    }
    // Closed before the caller hears of the failure, so that it can remove the file or fetch it
    // again.
    QCoro::Task<bool> closing = Worker::run([sink] {
        sink->close();
        return true;
    });
    co_await std::move(closing);
    std::rethrow_exception(failure);
}
