#include "core/HttpTransfer.h"

#include <QCoroNetworkReply>
#include <QNetworkAccessManager>

namespace {

struct LaterDeleter {
    // The reply has just emitted finished() and is still inside that emission.
    void operator()(QNetworkReply* reply) const { reply->deleteLater(); }
};

QCoro::Task<HttpTransfer::Response> transfer(std::shared_ptr<QNetworkAccessManager> manager,
                                             QNetworkRequest request, QByteArray method,
                                             QByteArray body) {
    const std::unique_ptr<QNetworkReply, LaterDeleter> reply(
        co_await manager->sendCustomRequest(request, method, body));

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid()) {
        // No HTTP answer: the transfer itself failed. Nobody aborts these replies except the
        // transfer timeout, so a cancellation is a time-out.
        const bool timedOut = reply->error() == QNetworkReply::OperationCanceledError &&
                              request.transferTimeout() > 0;
        throw LaunchError::url(HttpTransfer::urlErrorCode(reply->error(), timedOut));
    }
    co_return HttpTransfer::Response{status.toInt(), reply->readAll()};
}

} // namespace

HttpTransfer::HttpTransfer(std::shared_ptr<QNetworkAccessManager> manager)
    : m_manager(std::move(manager)) {}

QCoro::Task<HttpTransfer::Response> HttpTransfer::get(QNetworkRequest request) const {
    return transfer(m_manager, std::move(request), QByteArrayLiteral("GET"), {});
}

QCoro::Task<HttpTransfer::Response> HttpTransfer::send(QNetworkRequest request, QByteArray method,
                                                       QByteArray body) const {
    return transfer(m_manager, std::move(request), std::move(method), std::move(body));
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
