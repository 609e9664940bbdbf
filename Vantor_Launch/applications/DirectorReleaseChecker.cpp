#include "applications/DirectorReleaseChecker.h"

#include "core/StrictJson.h"

#include <QNetworkRequest>

using namespace Qt::StringLiterals;

namespace {

AvailableApplicationRelease decodeRelease(const JsonObject& release) {
    AvailableApplicationRelease decoded;
    decoded.version = release.requiredString("version");
    if (const auto build = release.optionalInteger("build"))
        decoded.build = QString::number(*build);
    if (const auto address = release.optionalString("downloadURL")) {
        const QUrl url(*address, QUrl::StrictMode);
        if (address->isEmpty() || !url.isValid())
            throw LaunchError::decoding(u"The release's downloadURL is not a URL."_s);
        decoded.downloadURL = url;
    }
    return decoded;
}

} // namespace

DirectorReleaseChecker::DirectorReleaseChecker(QUrl url,
                                               std::shared_ptr<QNetworkAccessManager> network,
                                               std::chrono::milliseconds timeout)
    : m_url(std::move(url))
    , m_transfer(std::move(network))
    , m_timeout(timeout) {}

QCoro::Task<std::optional<AvailableApplicationRelease>> DirectorReleaseChecker::latestRelease() {
    QNetworkRequest request(m_url);
    // A cached manifest could hide a release published a minute ago.
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setTransferTimeout(int(m_timeout.count()));

    const HttpTransfer::Response response = co_await m_transfer.get(request);
    if (response.status < 200 || response.status > 299)
        throw LaunchError::url(LaunchError::badServerResponse);
    co_return decodeManifest(response.body);
}

std::optional<AvailableApplicationRelease>
DirectorReleaseChecker::decodeManifest(const QByteArray& document) {
    const JsonObject manifest = JsonObject::parse(document);
    // Both entries are decoded, so a malformed "latest" fails the document even beside a good
    // "direct".
    std::optional<AvailableApplicationRelease> direct;
    std::optional<AvailableApplicationRelease> latest;
    if (const auto entry = manifest.optionalObject("direct"))
        direct = decodeRelease(*entry);
    if (const auto entry = manifest.optionalObject("latest"))
        latest = decodeRelease(*entry);
    return direct ? direct : latest;
}
