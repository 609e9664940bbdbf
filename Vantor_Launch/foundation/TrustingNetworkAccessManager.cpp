#include "foundation/TrustingNetworkAccessManager.h"

#include <QNetworkRequest>
#include <QSslConfiguration>

TrustingNetworkAccessManager::TrustingNetworkAccessManager(QList<QSslCertificate> authorities)
    : m_authorities(std::move(authorities)) {}

QNetworkReply* TrustingNetworkAccessManager::createRequest(Operation operation,
                                                           const QNetworkRequest& request,
                                                           QIODevice* outgoingData) {
    QNetworkRequest trusted(request);
    QSslConfiguration configuration = trusted.sslConfiguration();
    configuration.setCaCertificates(m_authorities);
    trusted.setSslConfiguration(configuration);
    return QNetworkAccessManager::createRequest(operation, trusted, outgoingData);
}

QByteArray TrustingNetworkAccessManager::authoritiesPem() const {
    QByteArray pem;
    for (const QSslCertificate& authority : m_authorities)
        pem += authority.toPem();
    return pem;
}

QByteArray TrustingNetworkAccessManager::authoritiesPemOf(const QNetworkAccessManager& network) {
    const auto* trusting = dynamic_cast<const TrustingNetworkAccessManager*>(&network);
    return trusting ? trusting->authoritiesPem() : QByteArray();
}
