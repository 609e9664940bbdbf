#pragma once

#include "core/LaunchError.h"

#include <QByteArray>
#include <QCoroTask>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <memory>

class QNetworkAccessManager;

// One HTTP request and its whole answer, on the main thread. Any HTTP status comes back as it is
// (the caller decides which it accepts); a request that got no HTTP answer at all throws the URL
// error that the flows tell apart (offline, timed out, insecure, ...).
class HttpTransfer {
public:
    struct Response {
        int status = 0;
        QByteArray body;
    };

    // Trust and connection reuse belong to the manager, so every request of a service shares one.
    explicit HttpTransfer(std::shared_ptr<QNetworkAccessManager> manager);

    QCoro::Task<Response> get(QNetworkRequest request) const;
    QCoro::Task<Response> send(QNetworkRequest request, QByteArray method,
                               QByteArray body = {}) const;

    static LaunchError::UrlCode urlErrorCode(QNetworkReply::NetworkError error, bool timedOut);

private:
    std::shared_ptr<QNetworkAccessManager> m_manager;
};
