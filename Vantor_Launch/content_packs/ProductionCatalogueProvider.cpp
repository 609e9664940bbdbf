#include "content_packs/ProductionCatalogueProvider.h"

#include "content_packs/CatalogueResponse.h"

#include <QNetworkRequest>

using namespace Qt::StringLiterals;

ProductionCatalogueProvider::ProductionCatalogueProvider(
    QUrl url, std::shared_ptr<QNetworkAccessManager> network, std::chrono::milliseconds timeout)
    : m_url(std::move(url))
    , m_transfer(std::move(network))
    , m_timeout(timeout) {}

QCoro::Task<QList<ContentPack>> ProductionCatalogueProvider::loadCatalogue() {
    QNetworkRequest request(m_url);
    // Reload, but let a cache (when one is installed) revalidate what it holds.
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::PreferNetwork);
    request.setTransferTimeout(int(m_timeout.count()));
    request.setRawHeader("Accept", "application/json");

    const HttpTransfer::Response response = co_await m_transfer.get(request);
    if (response.status < 200 || response.status > 299)
        throw LaunchError::url(LaunchError::badServerResponse);
    co_return decodeCatalogueResponse(response.body, m_url);
}
