#pragma once

#include "SampleWebsite.h"
#include "account/LaunchTokens.h"
#include "foundation/LaunchContentPackManifest.h"

#include <QHash>
#include <QJsonObject>
#include <QNetworkReply>
#include <QTemporaryDir>
#include <memory>

// The sample website on a loopback HTTPS server of its own, as the tests meet it: its sample data
// or a copy with the test's own documents, a client that trusts its certificate, and sessions
// signed in the way the browser and the launcher sign in.
class WebsiteFixture {
public:
    struct Answer {
        int status = 0;
        QNetworkReply::NetworkError error = QNetworkReply::NoError;
        QByteArray body;
        QString location;
        QJsonObject object() const;
    };

    // `documents` replace files of the sample data folder by name, e.g. "account.json".
    explicit WebsiteFixture(SampleWebsite::Options options = {},
                            const QHash<QString, QByteArray>& documents = {});
    ~WebsiteFixture();

    HttpsTestServer& server() { return *m_server; }
    SampleWebsite& website() { return *m_website; }
    WebsiteFaults& faults() { return m_website->faults(); }
    QUrl url(const QString& path) const { return m_server->url(path); }

    // One request, redirects not followed.
    Answer send(const QString& method, const QUrl& url, const QString& bearer = {},
                const QByteArray& body = {});
    Answer get(const QString& path, const QString& bearer = {});
    Answer post(const QString& path, const QJsonObject& body, const QString& bearer = {});

    // The code the website hands over to the launcher once the user approves `state`.
    QString authorizationCode(const QString& state);
    // A new session, as the launcher holds it after signing in; it expires at the website's time.
    LaunchTokens signIn();
    // The pack manifest of a new session.
    LaunchContentPackManifest packManifest();

private:
    QTemporaryDir m_data;
    std::unique_ptr<HttpsTestServer> m_server;
    std::unique_ptr<SampleWebsite> m_website;
    std::shared_ptr<QNetworkAccessManager> m_network;
};
