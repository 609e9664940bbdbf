#include "foundation/HttpsBodyReceiver.h"

#include <QCoroFuture>
#include <QElapsedTimer>
#include <QPromise>
#include <QThread>
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <curl/curl.h>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// What the thread gathers before handing it on: few writes and hash updates, little memory.
constexpr size_t pieceBytes = 1024 * 1024;

void initialiseOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

LaunchError::UrlCode urlErrorCode(CURLcode code) {
    switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
        return LaunchError::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
        return LaunchError::cannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT:
        return LaunchError::timedOut;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
        return LaunchError::secureConnectionFailed;
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
        return LaunchError::networkConnectionLost;
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_URL_MALFORMAT:
        return LaunchError::unsupportedURL;
    case CURLE_TOO_MANY_REDIRECTS:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_BAD_CONTENT_ENCODING:
        return LaunchError::badServerResponse;
    default:
        return LaunchError::unknown;
    }
}

} // namespace

struct HttpsBodyReceiver::State {
    Request request;
    Body body;

    std::mutex mutex;
    std::condition_variable verdictGiven;
    std::optional<bool> verdict;
    // Set while the thread may be waiting in it, for abort() to wake; under the mutex.
    CURLM* multi = nullptr;
    std::atomic<bool> aborted{false};
    std::atomic<qint64> received{0};
    QPromise<std::optional<Head>> headPromise;
    QPromise<Outcome> finishedPromise;

    // The thread's own.
    CURL* easy = nullptr;
    Head head;
    bool headSent = false;
    bool refused = false;
    std::vector<char> piece;
    qint64 delivered = 0;
    QElapsedTimer sinceProgress;
    QElapsedTimer window;
    qint64 inWindow = 0;
    // Time spent handing pieces on in this window: a slow disk is not a slow server.
    qint64 handingMilliseconds = 0;

    void run();
    void configure(curl_slist* headers);
    bool sendHead(bool waitForVerdict);
    size_t onBody(const char* data, size_t size);
    bool handOn();
    bool watchdogExpired();
    void wake() {
        const std::lock_guard lock(mutex);
        verdictGiven.notify_all();
        if (multi)
            curl_multi_wakeup(multi);
    }
};

bool HttpsBodyReceiver::State::sendHead(bool waitForVerdict) {
    long status = 0;
    curl_off_t length = -1;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    head.status = int(status);
    head.contentLength = length;
    char* redirect = nullptr;
    if (curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &redirect) == CURLE_OK && redirect)
        head.redirectURL = QByteArray(redirect);
    headSent = true;
    headPromise.addResult(std::optional<Head>(head));
    headPromise.finish();
    if (!waitForVerdict)
        return false;
    std::unique_lock lock(mutex);
    verdictGiven.wait(lock, [this] { return verdict.has_value() || aborted; });
    const bool accepted = verdict.value_or(false) && !aborted;
    lock.unlock();
    sinceProgress.restart();
    window.restart();
    inWindow = 0;
    handingMilliseconds = 0;
    return accepted;
}

bool HttpsBodyReceiver::State::handOn() {
    if (piece.empty())
        return true;
    QElapsedTimer handing;
    handing.start();
    const bool ok = body(piece.data(), qint64(piece.size()));
    delivered += qint64(piece.size());
    piece.clear();
    handingMilliseconds += handing.elapsed();
    return ok;
}

size_t HttpsBodyReceiver::State::onBody(const char* data, size_t size) {
    if (aborted || refused)
        return 0;
    if (!headSent && !sendHead(true)) {
        refused = true;
        return 0;
    }
    received += qint64(size);
    inWindow += qint64(size);
    piece.insert(piece.end(), data, data + size);
    if (piece.size() >= pieceBytes && !handOn()) {
        refused = true;
        return 0;
    }
    sinceProgress.restart();
    return size;
}

bool HttpsBodyReceiver::State::watchdogExpired() {
    if (sinceProgress.elapsed() > request.stallMilliseconds)
        return true;
    if (window.elapsed() - handingMilliseconds < request.floorWindowMilliseconds)
        return false;
    const bool crawling = inWindow < request.floorBytes;
    window.restart();
    inWindow = 0;
    handingMilliseconds = 0;
    return crawling;
}

void HttpsBodyReceiver::State::configure(curl_slist* headers) {
    const QByteArray url = request.url.toEncoded();
    curl_easy_setopt(easy, CURLOPT_URL, url.constData());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, request.followRedirects ? 1L : 0L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // One connection carries several files where the server speaks HTTP/2.
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long(CURL_HTTP_VERSION_2TLS));
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "Vantor Launcher");
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, long(request.stallMilliseconds));
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    if (request.method != "GET")
        curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.constData());
    if (!request.body.isNull()) {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(request.body.size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.constData());
    }
    if (!request.authorities.isEmpty()) {
        curl_blob authorities{request.authorities.data(), size_t(request.authorities.size()),
                              CURL_BLOB_COPY};
        curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &authorities);
        curl_easy_setopt(easy, CURLOPT_CAPATH, static_cast<char*>(nullptr));
    }
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(
        easy, CURLOPT_HEADERFUNCTION, +[](char* data, size_t size, size_t count, void* state) {
            static_cast<State*>(state)->head.readLine(
                QByteArrayView(data, qsizetype(size * count)));
            return size * count;
        });
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(
        easy, CURLOPT_WRITEFUNCTION, +[](char* data, size_t size, size_t count, void* state) {
            return static_cast<State*>(state)->onBody(data, size * count);
        });
}

void HttpsBodyReceiver::State::run() {
    if (request.background)
        QThread::currentThread()->setPriority(QThread::IdlePriority);
    piece.reserve(pieceBytes + CURL_MAX_WRITE_SIZE);
    curl_slist* headers = nullptr;
    // A body is sent at once, not after a wait for the server's go-ahead.
    if (!request.body.isNull())
        headers = curl_slist_append(headers, "Expect:");
    for (const auto& [name, value] : request.headers) {
        const QByteArray line = name + ": " + value;
        headers = curl_slist_append(headers, line.constData());
    }
    easy = curl_easy_init();
    {
        const std::lock_guard lock(mutex);
        multi = curl_multi_init();
    }
    Outcome outcome;
    bool stalled = false;
    bool done = false;
    CURLcode result = CURLE_FAILED_INIT;
    if (easy && multi) {
        configure(headers);
        sinceProgress.start();
        window.start();
        curl_multi_add_handle(multi, easy);
        const int pollMilliseconds = std::clamp(request.stallMilliseconds / 4, 50, 1000);
        int running = 1;
        while (curl_multi_perform(multi, &running) == CURLM_OK && running > 0 && !aborted &&
               !refused) {
            if (watchdogExpired()) {
                stalled = true;
                break;
            }
            curl_multi_poll(multi, nullptr, 0, pollMilliseconds, nullptr);
        }
        int left = 0;
        while (CURLMsg* message = curl_multi_info_read(multi, &left)) {
            if (message->msg == CURLMSG_DONE) {
                done = true;
                result = message->data.result;
            }
        }
    }
    // What arrived before a drop is kept, so that a resumption can continue after it.
    if (!aborted && !refused && !stalled && !handOn())
        refused = true;
    if (!headSent && !aborted && easy) {
        long status = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        if (status > 0)
            sendHead(false);
    }
    if (!headSent) {
        headPromise.addResult(std::optional<Head>());
        headPromise.finish();
    }
    if (aborted)
        outcome.ending = Ending::aborted;
    else if (refused)
        outcome.ending = Ending::refused;
    else if (stalled)
        outcome.ending = Ending::stalled;
    else if (done && result == CURLE_OK)
        outcome.ending = Ending::complete;
    else
        outcome.error = done ? urlErrorCode(result) : LaunchError::unknown;
    outcome.received = delivered;
    {
        const std::lock_guard lock(mutex);
        if (multi) {
            if (easy)
                curl_multi_remove_handle(multi, easy);
            curl_multi_cleanup(multi);
        }
        multi = nullptr;
    }
    if (easy)
        curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
    // Whatever the body held goes before the caller hears of the end.
    body = {};
    finishedPromise.addResult(outcome);
    finishedPromise.finish();
}

HttpsBodyReceiver::HttpsBodyReceiver(Request request, Body body)
    : m_state(std::make_shared<State>()) {
    initialiseOnce();
    m_state->request = std::move(request);
    m_state->body = std::move(body);
    m_state->headPromise.start();
    m_state->finishedPromise.start();
    std::thread([state = m_state] { state->run(); }).detach();
}

HttpsBodyReceiver::~HttpsBodyReceiver() {
    abort();
}

QFuture<std::optional<HttpsBodyReceiver::Head>> HttpsBodyReceiver::head() const {
    return m_state->headPromise.future();
}

void HttpsBodyReceiver::proceed(bool accepted) {
    const std::lock_guard lock(m_state->mutex);
    m_state->verdict = accepted;
    m_state->verdictGiven.notify_all();
}

void HttpsBodyReceiver::abort() {
    m_state->aborted = true;
    m_state->wake();
}

qint64 HttpsBodyReceiver::received() const {
    return m_state->received;
}

QFuture<HttpsBodyReceiver::Outcome> HttpsBodyReceiver::finished() const {
    return m_state->finishedPromise.future();
}

QCoro::Task<HttpsBodyReceiver::Outcome> HttpsBodyReceiver::settle(Decision decide) {
    std::exception_ptr refusal;
    try {
        QFuture<std::optional<Head>> arrival = head();
        const std::optional<Head> arrived = co_await arrival;
        if (arrived) {
            QCoro::Task<> deciding = decide(*arrived);
            co_await std::move(deciding);
            proceed(true);
        }
    } catch (...) {
        refusal = std::current_exception();
        abort();
    }
    // Nothing of the thread may outlive this: whatever `Body` touches is the caller's.
    QFuture<Outcome> ending = finished();
    const Outcome outcome = co_await ending;
    if (refusal)
        std::rethrow_exception(refusal);
    co_return outcome;
}
