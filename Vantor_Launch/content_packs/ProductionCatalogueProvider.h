#pragma once

#include "content_packs/CatalogueProviding.h"
#include "foundation/HttpTransfer.h"

#include <QUrl>
#include <chrono>

// Reads the public Content Pack catalogue: no account, no credentials. Lists the active packs in
// the order received, each with the description of the first product that includes it.
class ProductionCatalogueProvider : public CatalogueProviding {
public:
    static constexpr std::chrono::milliseconds defaultTimeout{12'000};

    ProductionCatalogueProvider(QUrl url, std::shared_ptr<QNetworkAccessManager> network,
                                std::chrono::milliseconds timeout = defaultTimeout);

    QCoro::Task<QList<ContentPack>> loadCatalogue() override;

private:
    QUrl m_url;
    HttpTransfer m_transfer;
    std::chrono::milliseconds m_timeout;
};
