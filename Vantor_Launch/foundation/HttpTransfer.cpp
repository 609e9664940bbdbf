#include "foundation/HttpTransfer.h"

#include "foundation/HttpsBodyReceiver.h"
#include "foundation/TrustingNetworkAccessManager.h"

#include <QCoroFuture>
#include <QNetworkAccessManager>

using namespace Qt::StringLiterals;

namespace {

// The most redirects a request that stays on its origin follows by hand.
constexpr int maximumRedirects = 5;

// What the receiving thread gathers: the body up to the limit, and whether it went past it.
struct Gathered {
    QByteArray body;
    qint64 limit = 0;
    bool tooLarge = false;
};

bool sameOrigin(const QUrl& first, const QUrl& second) {
    return first.scheme() == second.scheme() && first.host() == second.host() &&
           first.port(443) == second.port(443);
}

LaunchError tooLarge(qint64 limit) {
    return LaunchError::decoding(u"The response is larger than %1 bytes."_s.arg(limit));
}

// One request, without following a redirect unless `followRedirects`.
QCoro::Task<std::pair<ResponseHead, QByteArray>> exchange(HttpsBodyReceiver::Request request,
                                                          qint64 maximumBodySize) {
    const auto gathered = std::make_shared<Gathered>();
    gathered->limit = maximumBodySize;
    HttpsBodyReceiver receiver(std::move(request), [gathered](const char* data, qint64 size) {
        if (gathered->body.size() + size > gathered->limit) {
            gathered->tooLarge = true;
            gathered->body.clear();
            return false;
        }
        gathered->body.append(data, size);
        return true;
    });
    std::optional<ResponseHead> head;
    QCoro::Task<HttpsBodyReceiver::Outcome> settling =
        receiver.settle([&head, maximumBodySize](const ResponseHead& arrived) -> QCoro::Task<> {
            if (arrived.contentLength > maximumBodySize)
                throw tooLarge(maximumBodySize);
            head = arrived;
            co_return;
        });
    const HttpsBodyReceiver::Outcome outcome = co_await std::move(settling);
    using Ending = HttpsBodyReceiver::Ending;
    if (outcome.ending == Ending::refused && gathered->tooLarge)
        throw tooLarge(maximumBodySize);
    if (outcome.ending == Ending::stalled)
        throw LaunchError::url(LaunchError::timedOut);
    if (outcome.ending == Ending::failed)
        throw LaunchError::url(outcome.error);
    if (outcome.ending != Ending::complete || !head)
        throw LaunchError::url(LaunchError::badServerResponse);
    co_return std::pair{*head, std::move(gathered->body)};
}

QCoro::Task<HttpTransfer::Response> transfer(std::shared_ptr<QNetworkAccessManager> manager,
                                             QNetworkRequest request, QByteArray method,
                                             QByteArray body, qint64 maximumBodySize) {
    HttpsBodyReceiver::Request outgoing;
    outgoing.url = request.url();
    outgoing.method = method;
    if (!body.isEmpty() || method == "POST" || method == "PUT")
        outgoing.body = body.isNull() ? QByteArray("") : body;
    for (const QByteArray& name : request.rawHeaderList())
        outgoing.headers.append({name, request.rawHeader(name)});
    outgoing.authorities = TrustingNetworkAccessManager::authoritiesPemOf(*manager);
    // Like the request's transfer time-out: no byte for this long ends it.
    if (request.transferTimeout() > 0)
        outgoing.stallMilliseconds = request.transferTimeout();
    // A request that carries the user's session stays on its origin: a redirect elsewhere is
    // refused, never followed with the session or the body.
    const bool staysOnOrigin =
        request.attribute(QNetworkRequest::RedirectPolicyAttribute).toInt() ==
        QNetworkRequest::SameOriginRedirectPolicy;
    outgoing.followRedirects = !staysOnOrigin;
    for (int redirects = 0;; ++redirects) {
        QCoro::Task<std::pair<ResponseHead, QByteArray>> exchanging =
            exchange(outgoing, maximumBodySize);
        auto [head, received] = co_await std::move(exchanging);
        const bool redirected = head.status >= 300 && head.status <= 399;
        if (!staysOnOrigin || !redirected || head.redirectURL.isEmpty())
            co_return HttpTransfer::Response{head.status, std::move(received)};
        const QUrl target = QUrl::fromEncoded(head.redirectURL);
        if (!target.isValid() || !sameOrigin(target, request.url()) ||
            redirects + 1 >= maximumRedirects)
            throw LaunchError::url(LaunchError::badServerResponse);
        outgoing.url = target;
        // Only these two promise the same method and body at the new address.
        if (head.status != 307 && head.status != 308) {
            outgoing.method = QByteArrayLiteral("GET");
            outgoing.body = QByteArray();
        }
    }
}

} // namespace

HttpTransfer::HttpTransfer(std::shared_ptr<QNetworkAccessManager> manager)
    : m_manager(std::move(manager)) {}

QCoro::Task<HttpTransfer::Response> HttpTransfer::get(QNetworkRequest request,
                                                      qint64 maximumBodySize) const {
    return transfer(m_manager, std::move(request), QByteArrayLiteral("GET"), {}, maximumBodySize);
}

QCoro::Task<HttpTransfer::Response> HttpTransfer::send(QNetworkRequest request, QByteArray method,
                                                       QByteArray body,
                                                       qint64 maximumBodySize) const {
    return transfer(m_manager, std::move(request), std::move(method), std::move(body),
                    maximumBodySize);
}
