#pragma once

#include "TestCertificateAuthority.h"
#include "foundation/TrustingNetworkAccessManager.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QNetworkAccessManager>
#include <QSslCertificate>
#include <QString>
#include <QUrl>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace httplib {
class SSLServer;
struct Response;
} // namespace httplib

// A real HTTPS server on 127.0.0.1 with a certificate made for this run. Routes answer with fixed
// or computed responses; unknown routes answer 404. Handlers run on the server's thread. A Range
// header reaches the route like any other: the server never answers one on its own.
class HttpsTestServer {
public:
    struct Request {
        QString method;
        QString path;
        QString query;
        QHash<QString, QString> headers; // names in lower case
        QByteArray body;
    };

    struct Response {
        Response(int status = 200, QByteArray body = {},
                 QByteArray contentType = "application/json",
                 QList<std::pair<QByteArray, QByteArray>> headers = {}, int delayMilliseconds = 0)
            : status(status)
            , body(std::move(body))
            , contentType(std::move(contentType))
            , headers(std::move(headers))
            , delayMilliseconds(delayMilliseconds) {}

        int status;
        QByteArray body;
        QByteArray contentType;
        QList<std::pair<QByteArray, QByteArray>> headers;
        int delayMilliseconds;
        // Streams the body from this file instead of `body` (large downloads stay off the heap).
        QString filePath;
        // The part of filePath that is the body (a range): from this byte, this many bytes (-1:
        // to the end).
        qint64 fileOffset = 0;
        qint64 fileLength = -1;
        // Announces the whole length, sends this many body bytes, then drops the connection.
        qint64 dropAfterBytes = -1;
        // Announces no length and never ends: zeros in chunks until the client goes.
        bool endless = false;
        // Sends the body one byte at a time, this many milliseconds apart.
        int trickleMilliseconds = 0;
    };

    using Handler = std::function<Response(const Request&)>;

    HttpsTestServer();
    // Listens on this port of 127.0.0.1 (0: any free port), for a server that others configure.
    explicit HttpsTestServer(int port);
    ~HttpsTestServer();
    HttpsTestServer(const HttpsTestServer&) = delete;
    HttpsTestServer& operator=(const HttpsTestServer&) = delete;

    void on(const QString& method, const QString& path, Handler handler);
    void reply(const QString& method, const QString& path, Response response);

    QUrl url(const QString& pathAndQuery = {}) const;
    int port() const { return m_port; }
    QList<Request> requests() const;
    int requestCount(const QString& path) const;

    const TestCertificateAuthority& authority() const { return m_authority; }
    QList<QSslCertificate> trustedCertificates() const;
    // A manager whose only authority is this server's test CA.
    std::shared_ptr<QNetworkAccessManager> makeNetworkAccess() const;

private:
    Response dispatch(const Request& request);
    static void streamBody(const Response& response, httplib::Response& outgoing);

    TestCertificateAuthority m_authority;
    std::unique_ptr<httplib::SSLServer> m_server;
    std::thread m_thread;
    int m_port = 0;
    mutable std::mutex m_mutex;
    QHash<QString, Handler> m_routes; // "METHOD path"
    QList<Request> m_requests;
};
