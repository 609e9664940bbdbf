#include "foundation/StreamingDownload.h"

#include "foundation/FileSafety.h"
#include "foundation/HttpTransfer.h"

#include <QCoroFuture>
#include <QCoroNetworkReply>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPromise>
#include <QTimer>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <openssl/evp.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What the reply may hold for us; beyond it Qt stops reading from the connection.
constexpr qint64 readBufferBytes = 2 * 1024 * 1024;
// The most the main thread takes off the reply at once: few hand-overs, no long copy.
constexpr qint64 pieceBytes = 1024 * 1024;
// What may wait for the disk per download; beyond it the main thread stops reading.
constexpr qint64 maximumPending = 8 * 1024 * 1024;
// A durable file is pushed to the disk every this many bytes, so that the final flush finds
// little left to write and the dirty pages never pile up.
constexpr qint64 writeBackBytes = 8 * 1024 * 1024;

// Only ever touched by the download's writer thread.
struct Sink {
    int descriptor = -1;
    EVP_MD_CTX* digest = nullptr;
    int error = 0;
    bool durable = false;
    qint64 written = 0;
    qint64 writtenBack = 0;

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
    bool append(const QByteArray& chunk) {
        qsizetype offset = 0;
        while (offset < chunk.size()) {
            const ssize_t count =
                ::write(descriptor, chunk.constData() + offset, size_t(chunk.size() - offset));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0) {
                error = count < 0 ? errno : ENOSPC;
                return false;
            }
            offset += count;
        }
        written += chunk.size();
        if (digest && EVP_DigestUpdate(digest, chunk.constData(), size_t(chunk.size())) != 1) {
            error = EIO;
            return false;
        }
#ifdef __linux__
        // Starts the write-back without waiting for it; the flush at the end waits for all.
        if (durable && written - writtenBack >= writeBackBytes) {
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
        written = writtenBack = 0;
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

// Hands the chunks to one thread of the download's own, which writes and hashes them in order
// while the main thread reads on. Its own thread, not a pool's: a pool shared with other work
// (and only as wide as the machine) would queue each chunk behind unrelated tasks. What is
// queued is bounded: the main thread stops reading once `maximumPending` bytes wait.
class Writer {
public:
    Writer()
        : m_state(std::make_shared<State>()) {}
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    // A download that ends early drops what is still queued and lets the thread close the file
    // on its own; the main thread never waits on the disk.
    ~Writer() { m_state->abandon(); }

    // Starts the thread, which opens the file first.
    QFuture<bool> open(const QString& path, bool hash, bool durable) {
        QFuture<bool> opened = submit<bool>(
            [path, hash, durable](Sink& sink) { return sink.open(path, hash, durable); });
        std::thread([state = m_state] { state->run(); }).detach();
        return opened;
    }
    void append(QByteArray chunk) {
        const std::lock_guard lock(m_state->mutex);
        m_state->pending += chunk.size();
        m_state->queue.push_back({std::move(chunk), {}});
        m_state->changed.notify_one();
    }
    qint64 pending() const {
        const std::lock_guard lock(m_state->mutex);
        return m_state->pending;
    }
    bool failed() const {
        const std::lock_guard lock(m_state->mutex);
        return m_state->failed;
    }
    int error() const {
        const std::lock_guard lock(m_state->mutex);
        return m_state->sink.error;
    }
    // Ready once the queue has drained to half, the file failed, or wake() was called.
    QFuture<void> room() {
        const std::lock_guard lock(m_state->mutex);
        if (m_state->pending <= maximumPending / 2 || m_state->failed)
            return QtFuture::makeReadyFuture();
        m_state->room = std::make_shared<QPromise<void>>();
        m_state->room->start();
        return m_state->room->future();
    }
    // Ends a wait for room early, for a cancellation that must not wait on the disk. Safe to
    // call after the writer is gone.
    std::function<void()> waker() const {
        return [weak = std::weak_ptr<State>(m_state)] {
            if (const auto state = weak.lock()) {
                const std::lock_guard lock(state->mutex);
                state->release();
            }
        };
    }
    QFuture<bool> restart() {
        return submit<bool>([](Sink& sink) { return sink.restart(); });
    }
    QFuture<std::optional<QString>> finish() {
        return submit<std::optional<QString>>([](Sink& sink) { return sink.finish(); });
    }
    // Drops what is queued and closes the file; ready once it is closed, so that whoever removes
    // or writes the file next finds no write of ours still to come.
    QFuture<void> close() {
        const std::lock_guard lock(m_state->mutex);
        m_state->dropQueue();
        m_state->closing = true;
        m_state->changed.notify_one();
        return m_state->closed.future();
    }

private:
    struct Item {
        QByteArray chunk;
        // Runs in turn with the chunks, for what must follow them (a restart, the flush).
        std::function<void(Sink&)> task;
    };

    struct State {
        mutable std::mutex mutex;
        std::condition_variable changed;
        std::deque<Item> queue;
        qint64 pending = 0;
        bool failed = false;
        bool closing = false;
        std::shared_ptr<QPromise<void>> room;
        QPromise<void> closed;
        // Only the thread touches the sink (its error is read under the mutex once failed).
        Sink sink;

        State() { closed.start(); }

        void release() {
            if (!room)
                return;
            room->finish();
            room.reset();
        }
        void dropQueue() {
            queue.clear();
            pending = 0;
            release();
        }
        void abandon() {
            const std::lock_guard lock(mutex);
            dropQueue();
            closing = true;
            changed.notify_one();
        }

        void run() {
            std::unique_lock lock(mutex);
            for (;;) {
                changed.wait(lock, [this] { return !queue.empty() || closing; });
                if (queue.empty())
                    break;
                Item item = std::move(queue.front());
                queue.pop_front();
                const bool skip = failed;
                lock.unlock();
                bool ok = true;
                if (item.task)
                    item.task(sink);
                else if (!skip)
                    ok = sink.append(item.chunk);
                const qsizetype size = item.chunk.size();
                item = {};
                lock.lock();
                if (!ok)
                    failed = true;
                pending -= std::min<qint64>(pending, size);
                if (failed || pending <= maximumPending / 2)
                    release();
            }
            lock.unlock();
            sink.close();
            closed.finish();
        }
    };

    template <typename T, typename Work>
    QFuture<T> submit(Work work) {
        auto promise = std::make_shared<QPromise<T>>();
        promise->start();
        QFuture<T> future = promise->future();
        const std::lock_guard lock(m_state->mutex);
        m_state->queue.push_back({{}, [promise, work = std::move(work)](Sink& sink) {
                                      promise->addResult(work(sink));
                                      promise->finish();
                                  }});
        m_state->changed.notify_one();
        return future;
    }

    std::shared_ptr<State> m_state;
};

struct LaterDeleter {
    void operator()(QNetworkReply* reply) const {
        reply->disconnect();
        reply->abort();
        reply->deleteLater();
    }
};

LaunchError notWritten(const QString& path, int error) {
    return LaunchError::file(u"The download could not be saved to %1: %2"_s.arg(
        path, FileSafety::errorText(error ? error : EIO)));
}

bool isPrintable(const QByteArray& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

// What If-Range may name: a strong entity tag, else the date of the last change. A weak tag, or
// one too odd to send back, names nothing, and the transfer cannot resume.
QByteArray validatorOf(const QNetworkReply& reply) {
    const QByteArray tag = reply.rawHeader("ETag").trimmed();
    if (tag.size() >= 2 && tag.size() <= 256 && tag.startsWith('"') && tag.endsWith('"') &&
        isPrintable(tag) && tag.count('"') == 2)
        return tag;
    const QByteArray modified = reply.rawHeader("Last-Modified").trimmed();
    if (!tag.isEmpty() || modified.size() > 64 || !isPrintable(modified) ||
        !reply.header(QNetworkRequest::LastModifiedHeader).toDateTime().isValid())
        return {};
    return modified;
}

std::optional<qint64> decimal(QByteArrayView digits) {
    if (digits.isEmpty() || digits.size() > 18 ||
        !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    return digits.toLongLong();
}

// A 206 continues the file only as "bytes FROM-(LENGTH-1)/LENGTH", FROM being what is already
// here and LENGTH what the file's first answer announced.
bool continuesAt(const QNetworkReply& reply, qint64 from, qint64 length, qint64 bodyLength) {
    const QByteArray range = reply.rawHeader("Content-Range").trimmed();
    if (!range.startsWith("bytes "))
        return false;
    const QByteArrayView rest = QByteArrayView(range).sliced(6);
    const qsizetype dash = rest.indexOf('-');
    const qsizetype slash = rest.indexOf('/');
    if (dash < 0 || slash < dash)
        return false;
    const auto first = decimal(rest.first(dash));
    const auto last = decimal(rest.sliced(dash + 1, slash - dash - 1));
    const auto total = decimal(rest.sliced(slash + 1));
    return first == from && total == length && last == length - 1 &&
           (bodyLength < 0 || bodyLength == length - from);
}

// Ends a transfer that stalls or crawls. Runs on the main thread beside the read loop.
class Watchdog {
public:
    Watchdog(QNetworkReply* reply, StreamingDownload::Limits limits)
        : m_limits(limits) {
        m_sinceProgress.start();
        m_window.start();
        m_timer.setInterval(std::min(1000, std::max(50, limits.stallMilliseconds / 4)));
        QObject::connect(&m_timer, &QTimer::timeout, reply, [this, reply] {
            if (m_held) {
                m_sinceProgress.restart();
                m_window.restart();
                m_inWindow = 0;
                return;
            }
            const bool stalled = m_sinceProgress.elapsed() > m_limits.stallMilliseconds;
            bool crawling = false;
            if (m_window.elapsed() >= m_limits.floorWindowMilliseconds) {
                crawling = m_inWindow < m_limits.floorBytes;
                m_window.restart();
                m_inWindow = 0;
            }
            if ((stalled || crawling) && !m_expired) {
                m_expired = true;
                reply->abort();
            }
        });
        m_timer.start();
    }
    void received(qint64 bytes) {
        m_sinceProgress.restart();
        m_inWindow += bytes;
    }
    // While the disk holds the transfer back, the server is not to blame for the silence.
    void hold(bool held) {
        m_held = held;
        m_sinceProgress.restart();
    }
    bool expired() const { return m_expired; }

private:
    StreamingDownload::Limits m_limits;
    QTimer m_timer;
    QElapsedTimer m_sinceProgress;
    QElapsedTimer m_window;
    qint64 m_inWindow = 0;
    bool m_expired = false;
    bool m_held = false;
};

} // namespace

namespace {

// The body into the writer, across resumptions; the bytes received. Whatever it throws, the
// writer may still hold chunks of it.
QCoro::Task<qint64> receive(QNetworkAccessManager& network, const QUrl& url,
                            const QString& filePath, const StreamingDownload::Options& options,
                            Writer& writer) {
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
    QElapsedTimer sinceReport;
    sinceReport.start();
    for (;;) {
        // A cancellation between two requests reaches neither.
        if (options.cancellation)
            options.cancellation->throwIfCancelled();
        QNetworkRequest request(url);
        request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                             QNetworkRequest::AlwaysNetwork);
        request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
        // Offsets and lengths must count the file's own bytes, never a compressed form of them.
        request.setRawHeader("Accept-Encoding", "identity");
        if (resuming) {
            request.setRawHeader("Range", "bytes=" + QByteArray::number(received) + '-');
            request.setRawHeader("If-Range", validator);
        }
        const std::unique_ptr<QNetworkReply, LaterDeleter> reply(network.get(request));
        reply->setReadBufferSize(readBufferBytes);
        Watchdog watchdog(reply.get(), options.limits);
        if (options.cancellation) {
            QObject::connect(options.cancellation.get(), &Cancellation::cancelled, reply.get(),
                             &QNetworkReply::abort);
            QObject::connect(options.cancellation.get(), &Cancellation::cancelled, reply.get(),
                             writer.waker());
        }

        qint64 arrived = 0;
        bool accepted = false;
        for (;;) {
            if (writer.pending() >= maximumPending) {
                watchdog.hold(true);
                QFuture<void> room = writer.room();
                co_await room;
                watchdog.hold(false);
                if (options.cancellation)
                    options.cancellation->throwIfCancelled();
                if (writer.failed())
                    throw notWritten(filePath, writer.error());
                continue;
            }
            if (reply->bytesAvailable() == 0 && !reply->isFinished())
                co_await qCoro(reply.get()).waitForReadyRead(std::chrono::milliseconds{-1});

            const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
            if (status.isValid() && !accepted) {
                accepted = true;
                const int code = status.toInt();
                const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
                const qint64 bodyLength = length.isValid() ? length.toLongLong() : -1;
                if (resuming && code == 206) {
                    if (!continuesAt(*reply, received, announced, bodyLength))
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
                        QFuture<bool> emptied = writer.restart();
                        if (!co_await emptied)
                            throw notWritten(filePath, writer.error());
                        received = 0;
                    }
                    announced = bodyLength;
                    validator = code == 200 ? validatorOf(*reply) : QByteArray();
                    if (announced >= 0 && options.maximumBytes > 0 &&
                        announced > options.maximumBytes)
                        throw tooLarge();
                    if (options.accept)
                        options.accept(announced);
                    if (resuming && options.progress) {
                        sinceReport.restart();
                        options.progress(received, announced);
                    }
                }
            }

            // An aborted reply is closed and has nothing more to give.
            if (!reply->isOpen())
                break;
            const QByteArray chunk =
                reply->read(std::min(pieceBytes, std::max<qint64>(reply->bytesAvailable(), 1)));
            if (chunk.isEmpty()) {
                if (reply->isFinished())
                    break;
                continue;
            }
            received += chunk.size();
            arrived += chunk.size();
            watchdog.received(chunk.size());
            if ((options.maximumBytes > 0 && received > options.maximumBytes) ||
                (announced >= 0 && received > announced))
                throw tooLarge();
            if (writer.failed())
                throw notWritten(filePath, writer.error());
            writer.append(chunk);
            if (options.progress && (sinceReport.elapsed() >= 200 || reply->isFinished())) {
                sinceReport.restart();
                options.progress(received, announced);
            }
        }

        if (options.cancellation)
            options.cancellation->throwIfCancelled();
        if (watchdog.expired())
            throw LaunchError::url(LaunchError::timedOut);
        const bool statusKnown =
            reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
        const bool complete = announced < 0 || received == announced;
        if (reply->error() == QNetworkReply::NoError && statusKnown && complete)
            break;
        const bool dropped = statusKnown && (reply->error() == QNetworkReply::NoError ||
                                             HttpTransfer::urlErrorCode(reply->error(), false) ==
                                                 LaunchError::networkConnectionLost);
        // Only new bytes earn another request: a connection that drops at once ends it.
        if (dropped && arrived > 0 && !validator.isEmpty() && announced >= 0 &&
            resumptionsLeft > 0) {
            --resumptionsLeft;
            resuming = true;
            continue;
        }
        if (reply->error() != QNetworkReply::NoError)
            throw LaunchError::url(HttpTransfer::urlErrorCode(reply->error(), false));
        if (!statusKnown)
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

    Writer writer;
    QFuture<bool> opened = writer.open(filePath, options.hash, options.durable);
    if (!co_await opened)
        throw notWritten(filePath, writer.error());
    std::exception_ptr failure;
    try {
        QCoro::Task<qint64> receiving = receive(*network, url, filePath, options, writer);
        const qint64 received = co_await std::move(receiving);
        QFuture<std::optional<QString>> finished = writer.finish();
        const std::optional<QString> digest = co_await finished;
        if (!digest)
            throw notWritten(filePath, writer.error());
        co_return Result{received, *digest};
    } catch (...) {
        failure = std::current_exception();
    }
    // No write of this download may land after it has failed: the caller removes the file, or
    // fetches it again.
    QFuture<void> closed = writer.close();
    co_await closed;
    std::rethrow_exception(failure);
}
