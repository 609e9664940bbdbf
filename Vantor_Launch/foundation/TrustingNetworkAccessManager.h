#pragma once

#include <QList>
#include <QNetworkAccessManager>
#include <QSslCertificate>

// Applies one set of trusted authorities to every request the manager makes: trust belongs to the
// manager, because its connection cache is shared by all of its requests.
class TrustingNetworkAccessManager : public QNetworkAccessManager {
public:
    explicit TrustingNetworkAccessManager(QList<QSslCertificate> authorities);

    // The same authorities as PEM, for the transfers that run beside the manager.
    QByteArray authoritiesPem() const;
    // What a transfer beside `network` trusts: its authorities, or (empty) the system's.
    static QByteArray authoritiesPemOf(const QNetworkAccessManager& network);

protected:
    QNetworkReply* createRequest(Operation operation, const QNetworkRequest& request,
                                 QIODevice* outgoingData) override;

private:
    QList<QSslCertificate> m_authorities;
};
