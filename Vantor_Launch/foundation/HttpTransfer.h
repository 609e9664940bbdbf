#pragma once

#include "foundation/LaunchError.h"

#include <QByteArray>
#include <QCoroTask>
#include <QNetworkRequest>
#include <memory>

class QNetworkAccessManager;

// One HTTPS request and its whole answer, received on a thread of its own (as downloads are, so
// that no answer passes through Qt's own reading of HTTP headers, which runs past the end of some
// malformed dates). Any HTTP status comes back as it is (the caller decides which it accepts). A
// request that failed in transport throws the URL error that the flows tell apart (offline,
// connection lost, timed out, insecure, ...), even when a status line and part of the body had
// arrived first. A body larger than the limit is never held: the transfer stops as soon as the
// limit is passed and fails with the decoding error.
class HttpTransfer {
public:
    struct Response {
        int status = 0;
        QByteArray body;
    };

    // The documents the launcher reads into memory (manifests, the catalogue, the account API,
    // the appcast) are kilobytes; this leaves them room a thousand times over.
    static constexpr qint64 defaultMaximumBodySize = 16 * 1024 * 1024;

    // Trust and connection reuse belong to the manager, so every request of a service shares one.
    explicit HttpTransfer(std::shared_ptr<QNetworkAccessManager> manager);

    QCoro::Task<Response> get(QNetworkRequest request,
                              qint64 maximumBodySize = defaultMaximumBodySize) const;
    QCoro::Task<Response> send(QNetworkRequest request, QByteArray method, QByteArray body = {},
                               qint64 maximumBodySize = defaultMaximumBodySize) const;

private:
    std::shared_ptr<QNetworkAccessManager> m_manager;
};
