#include "foundation/StreamingDownload.h"

#include "foundation/FileSafety.h"
#include "foundation/HttpTransfer.h"

#include <QCoroFuture>
#include <QCoroNetworkReply>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>
#include <QtConcurrent>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// What the network may hold for us while the worker is busy; beyond it the transfer waits.
constexpr qint64 chunkBytes = 4 * 1024 * 1024;

// Touched by one worker task at a time, each awaited before the next starts.
struct Sink {
    int descriptor = -1;
    EVP_MD_CTX* digest = nullptr;
    int error = 0;

    ~Sink() {
        if (descriptor >= 0)
            ::close(descriptor);
        EVP_MD_CTX_free(digest);
    }

    bool open(const QString& path, bool hash) {
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
            const ssize_t written =
                ::write(descriptor, chunk.constData() + offset, size_t(chunk.size() - offset));
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0) {
                error = written < 0 ? errno : ENOSPC;
                return false;
            }
            offset += written;
        }
        return !digest || EVP_DigestUpdate(digest, chunk.constData(), size_t(chunk.size())) == 1;
    }
    // An empty file and a new digest, for a body that starts over.
    bool restart() {
        if (::ftruncate(descriptor, 0) != 0 || ::lseek(descriptor, 0, SEEK_SET) != 0) {
            error = errno;
            return false;
        }
        if (digest && EVP_DigestInit_ex(digest, EVP_sha256(), nullptr) != 1) {
            error = ENOMEM;
            return false;
        }
        return true;
    }
    std::optional<QString> finish(bool durable) {
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
        if (EVP_DigestFinal_ex(digest, value, &length) != 1)
            return std::nullopt;
        return QString::fromLatin1(
            QByteArray(reinterpret_cast<const char*>(value), int(length)).toHex());
    }
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
    // Time spent writing is the disk's, not the server's.
    void paused() { m_sinceProgress.restart(); }
    bool expired() const { return m_expired; }

private:
    StreamingDownload::Limits m_limits;
    QTimer m_timer;
    QElapsedTimer m_sinceProgress;
    QElapsedTimer m_window;
    qint64 m_inWindow = 0;
    bool m_expired = false;
};

} // namespace

QCoro::Task<StreamingDownload::Result>
StreamingDownload::fetch(std::shared_ptr<QNetworkAccessManager> network, QUrl url, QString filePath,
                         Options options) {
    if (url.scheme() != u"https"_s)
        throw LaunchError::url(LaunchError::unsupportedURL);

    auto sink = std::make_shared<Sink>();
    QFuture<bool> opened = QtConcurrent::run(
        [sink, filePath, hash = options.hash] { return sink->open(filePath, hash); });
    if (!co_await opened)
        throw notWritten(filePath, sink->error);

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
        const std::unique_ptr<QNetworkReply, LaterDeleter> reply(network->get(request));
        reply->setReadBufferSize(chunkBytes);
        Watchdog watchdog(reply.get(), options.limits);
        if (options.cancellation)
            QObject::connect(options.cancellation.get(), &Cancellation::cancelled, reply.get(),
                             &QNetworkReply::abort);

        qint64 arrived = 0;
        bool accepted = false;
        for (;;) {
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
                        QFuture<bool> emptied =
                            QtConcurrent::run([sink] { return sink->restart(); });
                        if (!co_await emptied)
                            throw notWritten(filePath, sink->error);
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

            const QByteArray chunk = reply->read(chunkBytes);
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
            QFuture<bool> written =
                QtConcurrent::run([sink, chunk] { return sink->append(chunk); });
            if (!co_await written)
                throw notWritten(filePath, sink->error);
            watchdog.paused();
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
    QFuture<std::optional<QString>> finished =
        QtConcurrent::run([sink, durable = options.durable] { return sink->finish(durable); });
    const std::optional<QString> digest = co_await finished;
    if (!digest)
        throw notWritten(filePath, sink->error);
    co_return Result{received, *digest};
}
