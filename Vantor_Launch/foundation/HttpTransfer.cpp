#include "foundation/HttpTransfer.h"

#include <QCoroNetworkReply>
#include <QNetworkAccessManager>

using namespace Qt::StringLiterals;

namespace {

struct LaterDeleter {
    // The reply has just emitted finished() and is still inside that emission.
    void operator()(QNetworkReply* reply) const { reply->deleteLater(); }
};

// Takes the body off the reply as it arrives, so that Qt never buffers more than one chunk, and
// stops the transfer once the body is known to be too large.
class BoundedBody {
public:
    BoundedBody(QNetworkReply* reply, qint64 limit)
        : m_reply(reply)
        , m_limit(limit) {
        m_headers = QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [this] {
            const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
            if (length.isValid() && length.toLongLong() > m_limit)
                refuse();
        });
        m_data = QObject::connect(reply, &QNetworkReply::readyRead, reply, [this] { take(); });
    }
    ~BoundedBody() {
        QObject::disconnect(m_headers);
        QObject::disconnect(m_data);
    }
    BoundedBody(const BoundedBody&) = delete;
    BoundedBody& operator=(const BoundedBody&) = delete;

    bool tooLarge() const { return m_tooLarge; }

    QByteArray finish() {
        take();
        if (m_tooLarge)
            return {};
        return std::move(m_body);
    }

private:
    void take() {
        if (m_tooLarge)
            return;
        if (m_body.size() + m_reply->bytesAvailable() > m_limit) {
            refuse();
            return;
        }
        m_body.append(m_reply->readAll());
    }

    void refuse() {
        if (m_tooLarge)
            return;
        m_tooLarge = true;
        m_body.clear();
        QObject::disconnect(m_data);
        // Not from inside the reply's own signal: aborting emits finished(), which resumes the
        // waiting coroutine, which must not unwind under this handler.
        QMetaObject::invokeMethod(m_reply, &QNetworkReply::abort, Qt::QueuedConnection);
    }

    QNetworkReply* m_reply;
    qint64 m_limit;
    QByteArray m_body;
    bool m_tooLarge = false;
    QMetaObject::Connection m_headers;
    QMetaObject::Connection m_data;
};

// Errors below the HTTP layer: no answer, or an answer cut off in transfer. HTTP statuses map to
// errors in other ranges and come back to the caller as statuses.
bool isTransportError(QNetworkReply::NetworkError error) {
    return (error > QNetworkReply::NoError && error <= QNetworkReply::UnknownProxyError) ||
           error == QNetworkReply::ProtocolFailure;
}

QCoro::Task<HttpTransfer::Response> transfer(std::shared_ptr<QNetworkAccessManager> manager,
                                             QNetworkRequest request, QByteArray method,
                                             QByteArray body, qint64 maximumBodySize) {
    QNetworkReply* pending = manager->sendCustomRequest(request, method, body);
    const std::unique_ptr<QNetworkReply, LaterDeleter> reply(pending);
    BoundedBody received(pending, maximumBodySize);
    co_await pending;

    if (received.tooLarge())
        throw LaunchError::decoding(
            u"The response is larger than %1 bytes."_s.arg(maximumBodySize));
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid() || isTransportError(reply->error())) {
        // Nobody aborts these replies except the transfer timeout (and the size limit, handled
        // above), so a cancellation is a time-out.
        const bool timedOut = reply->error() == QNetworkReply::OperationCanceledError &&
                              request.transferTimeout() > 0;
        throw LaunchError::url(HttpTransfer::urlErrorCode(reply->error(), timedOut));
    }
    co_return HttpTransfer::Response{status.toInt(), received.finish()};
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
LaunchError::UrlCode HttpTransfer::urlErrorCode(QNetworkReply::NetworkError error, bool timedOut) {
    switch (error) {
    case QNetworkReply::HostNotFoundError:
        return LaunchError::cannotFindHost;
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyNotFoundError:
        return LaunchError::cannotConnectToHost;
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::ProxyConnectionClosedError:
        return LaunchError::networkConnectionLost;
    case QNetworkReply::TimeoutError:
    case QNetworkReply::ProxyTimeoutError:
        return LaunchError::timedOut;
    case QNetworkReply::OperationCanceledError:
        return timedOut ? LaunchError::timedOut : LaunchError::cancelled;
    case QNetworkReply::SslHandshakeFailedError:
        return LaunchError::secureConnectionFailed;
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
        return LaunchError::notConnectedToInternet;
    case QNetworkReply::ProtocolUnknownError:
        return LaunchError::unsupportedURL;
    case QNetworkReply::NoError:
    case QNetworkReply::ProtocolFailure:
    case QNetworkReply::InsecureRedirectError:
    case QNetworkReply::TooManyRedirectsError:
        return LaunchError::badServerResponse;
    default:
        return LaunchError::unknown;
    }
}
