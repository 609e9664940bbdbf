#pragma once

#include "HttpsTestServer.h"

#include <QNetworkReply>
#include <QProcess>

// Plays the user's browser: loads the authorisation page, takes the website's redirect to the
// launcher's scheme, and opens that address the way the desktop does, by starting the launcher.
class PlayingBrowser {
public:
    explicit PlayingBrowser(const HttpsTestServer& server)
        : m_network(server.makeNetworkAccess()) {}
    ~PlayingBrowser() { m_network->clearConnectionCache(); }

    std::function<QUrl(QUrl)> alterCallback = [](QUrl url) { return url; };
    QList<QUrl> openedPages;
    QUrl handedOver;
    int launcherExitCode = -1;

    bool open(const QUrl& page) {
        openedPages.append(page);
        QNetworkRequest request(page);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::ManualRedirectPolicy);
        QNetworkReply* reply = m_network->get(request);
        QObject::connect(reply, &QNetworkReply::finished, reply, [this, reply] {
            reply->deleteLater();
            handedOver = alterCallback(reply->header(QNetworkRequest::LocationHeader).toUrl());
            m_launcher = std::make_unique<QProcess>();
            QObject::connect(m_launcher.get(), &QProcess::finished, m_launcher.get(),
                             [this](int code) { launcherExitCode = code; });
            m_launcher->start(QStringLiteral(LAUNCHER_EXECUTABLE),
                              {QString::fromUtf8(handedOver.toEncoded())});
        });
        return true;
    }

private:
    std::shared_ptr<QNetworkAccessManager> m_network;
    std::unique_ptr<QProcess> m_launcher;
};
