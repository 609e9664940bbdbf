#pragma once

#include "foundation/LaunchError.h"
#include "foundation/ResponseHead.h"

#include <QByteArray>
#include <QCoroTask>
#include <QFuture>
#include <QList>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

// One HTTPS GET on a thread of its own: the response head goes to the main thread before any
// byte of the body is taken, and once the caller lets it proceed the body goes to `Body` on that
// same thread, in pieces of about a megabyte. So each byte is decrypted, hashed and written where
// it arrived and never crosses threads, and a slow disk holds back only its own transfer. A
// transfer that goes silent, or trickles below a floor rate, ends as stalled; abort() ends it at
// once from any thread.
class HttpsBodyReceiver {
public:
    struct Request {
        QUrl url;
        QByteArray method = QByteArrayLiteral("GET");
        // Sent as the request's body when not null.
        QByteArray body;
        QList<std::pair<QByteArray, QByteArray>> headers;
        // Redirects to another https address are followed; when false a redirect is the answer,
        // with the address it names in the head.
        bool followRedirects = true;
        // PEM authorities trusted instead of the system's; empty: the system's.
        QByteArray authorities;
        int stallMilliseconds = 60'000;
        qint64 floorBytes = 0;
        int floorWindowMilliseconds = 120'000;
        // Runs only when the machine has nothing else to do.
        bool background = false;
    };

    using Head = ResponseHead;

    enum class Ending {
        complete,
        // By abort().
        aborted,
        stalled,
        // The caller refused the head, or `Body` returned false.
        refused,
        // By the network or the server; `error` says how.
        failed,
    };
    struct Outcome {
        Ending ending = Ending::failed;
        LaunchError::UrlCode error = LaunchError::unknown;
        // Body bytes handed to `Body`.
        qint64 received = 0;
    };

    // Runs on the receiving thread; false stops the transfer.
    using Body = std::function<bool(const char* data, qint64 size)>;

    // Starts the transfer at once.
    HttpsBodyReceiver(Request request, Body body);
    // Aborts a transfer still running; its thread ends on its own and keeps `Body` alive until
    // then. Whoever owns what `Body` touches awaits finished() first.
    ~HttpsBodyReceiver();
    HttpsBodyReceiver(const HttpsBodyReceiver&) = delete;
    HttpsBodyReceiver& operator=(const HttpsBodyReceiver&) = delete;

    // The head of the final response (after redirects), or nothing when the transfer ended
    // without one. The body waits until proceed() is called.
    QFuture<std::optional<Head>> head() const;
    void proceed(bool accepted);
    // Any thread.
    void abort();
    // Body bytes received so far, for progress; any thread.
    qint64 received() const;
    QFuture<Outcome> finished() const;

    // The one way through a transfer: the head goes to `decide`, which may throw to refuse it
    // (the transfer is then aborted), and the body proceeds once it returns; the outcome comes
    // back when the thread has ended, or the refusal is rethrown then. `decide` is not called for
    // a transfer that ended without a head.
    using Decision = std::function<QCoro::Task<>(const Head& head)>;
    QCoro::Task<Outcome> settle(Decision decide);

    struct State;

private:
    std::shared_ptr<State> m_state;
};
