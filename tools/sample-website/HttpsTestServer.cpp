#include "HttpsTestServer.h"

#include <QFile>
#include <algorithm>
#include <chrono>
#include <httplib.h>

using namespace Qt::StringLiterals;

HttpsTestServer::HttpsTestServer()
    : HttpsTestServer(0) {}

HttpsTestServer::HttpsTestServer(int port) {
    const auto leaf = m_authority.issue({u"127.0.0.1"_s, {}, {u"127.0.0.1"_s}, true, false});
    m_server = std::make_unique<httplib::SSLServer>(leaf.certificate.get(), leaf.key.get());
    m_server->set_keep_alive_max_count(100);

    const auto handle = [this](const httplib::Request& incoming, httplib::Response& outgoing) {
        Request request;
        request.method = QString::fromStdString(incoming.method);
        request.path = QString::fromStdString(incoming.path);
        const auto question = incoming.target.find('?');
        if (question != std::string::npos)
            request.query = QString::fromStdString(incoming.target.substr(question + 1));
        for (const auto& [name, value] : incoming.headers)
            request.headers.insert(QString::fromStdString(name).toLower(),
                                   QString::fromStdString(value));
        request.body = QByteArray::fromStdString(incoming.body);
        // httplib would cut the answer to the requested range once more, whatever its status:
        // ranges are the routes' business. The request is httplib's own, not const.
        const_cast<httplib::Request&>(incoming).ranges.clear();

        const Response response = dispatch(request);
        if (response.delayMilliseconds > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(response.delayMilliseconds));
        outgoing.status = response.status;
        for (const auto& [name, value] : response.headers)
            outgoing.set_header(name.toStdString(), value.toStdString());
        if (response.filePath.isEmpty() && response.dropAfterBytes < 0 && !response.endless &&
            response.trickleMilliseconds <= 0)
            outgoing.set_content(response.body.toStdString(), response.contentType.toStdString());
        else
            streamBody(response, outgoing);
    };
    m_server->Get(".*", handle);
    m_server->Post(".*", handle);
    m_server->Put(".*", handle);
    m_server->Delete(".*", handle);

    if (port == 0)
        m_port = m_server->bind_to_any_port("127.0.0.1");
    else if (m_server->bind_to_port("127.0.0.1", port))
        m_port = port;
    if (m_port <= 0)
        qFatal("The HTTPS server could not bind to 127.0.0.1:%d (in use?)", port);
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    while (!m_server->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// Sends the body in slices through a content provider, from memory or from a file, and can stop
// part-way to play a connection that drops after the headers.
void HttpsTestServer::streamBody(const Response& response, httplib::Response& outgoing) {
    auto file = std::make_shared<QFile>(response.filePath);
    if (!response.filePath.isEmpty() && !file->open(QIODevice::ReadOnly)) {
        outgoing.status = 500;
        return;
    }
    if (response.endless) {
        outgoing.set_chunked_content_provider(
            response.contentType.toStdString(), [](size_t, httplib::DataSink& sink) {
                static const QByteArray zeros(256 * 1024, '\0');
                return sink.write(zeros.constData(), size_t(zeros.size()));
            });
        return;
    }
    const qint64 start = response.filePath.isEmpty() ? 0 : response.fileOffset;
    const qint64 length = response.filePath.isEmpty() ? response.body.size()
                          : response.fileLength >= 0  ? response.fileLength
                                                      : file->size() - start;
    const int trickle = response.trickleMilliseconds;
    const QByteArray body = response.body;
    const qint64 dropAfter = response.dropAfterBytes;
    outgoing.set_content_provider(
        size_t(std::max<qint64>(length, 0)), response.contentType.toStdString(),
        [file, body, start, dropAfter, trickle](size_t offset, size_t available,
                                                httplib::DataSink& sink) {
            if (dropAfter >= 0 && qint64(offset) >= dropAfter)
                return false;
            qint64 slice = std::min<qint64>(qint64(available), 256 * 1024);
            if (trickle > 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(trickle));
                slice = 1;
            }
            if (dropAfter >= 0)
                slice = std::min<qint64>(slice, dropAfter - qint64(offset));
            if (body.isEmpty() && file->isOpen()) {
                QByteArray chunk(slice, Qt::Uninitialized);
                file->seek(start + qint64(offset));
                const qint64 read = file->read(chunk.data(), slice);
                if (read <= 0)
                    return false;
                return sink.write(chunk.constData(), size_t(read));
            }
            return sink.write(body.constData() + offset, size_t(slice));
        });
}

HttpsTestServer::~HttpsTestServer() {
    m_server->stop();
    if (m_thread.joinable())
        m_thread.join();
}

void HttpsTestServer::on(const QString& method, const QString& path, Handler handler) {
    const std::lock_guard lock(m_mutex);
    m_routes.insert(method + u' ' + path, std::move(handler));
}

void HttpsTestServer::reply(const QString& method, const QString& path, Response response) {
    on(method, path, [response](const Request&) { return response; });
}

HttpsTestServer::Response HttpsTestServer::dispatch(const Request& request) {
    Handler handler;
    {
        const std::lock_guard lock(m_mutex);
        m_requests.append(request);
        handler = m_routes.value(request.method + u' ' + request.path);
    }
    if (!handler)
        return Response{404, R"({"error":"not found"})", "application/json", {}, 0};
    return handler(request);
}

QUrl HttpsTestServer::url(const QString& pathAndQuery) const {
    return QUrl(u"https://127.0.0.1:%1"_s.arg(m_port) + pathAndQuery);
}

QList<HttpsTestServer::Request> HttpsTestServer::requests() const {
    const std::lock_guard lock(m_mutex);
    return m_requests;
}

int HttpsTestServer::requestCount(const QString& path) const {
    const std::lock_guard lock(m_mutex);
    return int(std::count_if(m_requests.begin(), m_requests.end(),
                             [&](const Request& request) { return request.path == path; }));
}

QList<QSslCertificate> HttpsTestServer::trustedCertificates() const {
    return QSslCertificate::fromData(m_authority.certificatePem(), QSsl::Pem);
}

std::shared_ptr<QNetworkAccessManager> HttpsTestServer::makeNetworkAccess() const {
    return std::make_shared<TrustingNetworkAccessManager>(trustedCertificates());
}
