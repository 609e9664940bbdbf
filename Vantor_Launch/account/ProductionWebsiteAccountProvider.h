#pragma once

#include "account/LaunchTokenStore.h"
#include "account/WebsiteAccountProviding.h"
#include "foundation/HttpTransfer.h"
#include "foundation/LaunchConfiguration.h"
#include "platform/BrowserSignIn.h"

#include <QDateTime>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

// The launcher's client of the website account API: sign-in through the browser, the session's
// tokens in the secret store, the account, sign-out and the pack download manifest.
class ProductionWebsiteAccountProvider : public WebsiteAccountProviding {
public:
    // Tokens this close to their expiry are refreshed before they are used.
    static constexpr qint64 refreshMarginSeconds = 30;
    static constexpr int requestTimeoutMilliseconds = 15'000;
    // The redirect address of the token exchange: fixed, whatever scheme is configured.
    static inline const QString exchangeRedirectURI = QStringLiteral("vantor-launch://auth");

    ProductionWebsiteAccountProvider(LaunchConfiguration configuration,
                                     std::shared_ptr<LaunchTokenStore> tokenStore,
                                     std::shared_ptr<BrowserSignIn> browser,
                                     std::shared_ptr<QNetworkAccessManager> network,
                                     std::function<QDateTime()> now);

    QCoro::Task<WebsiteAccount> signIn() override;
    QCoro::Task<> signOut() override;
    QCoro::Task<WebsiteAccount> refreshAccount() override;
    QCoro::Task<LaunchContentPackManifest> downloadContentPackManifest() override;

    // 32 random bytes as unpadded base64url: 43 characters.
    static QString makeState();
    // The authorisation page with "state" appended after its own query items. Throws badURL.
    static QUrl startURL(const QUrl& authenticationStartURL, const QString& state);
    // The authorisation code of a callback that carries this state, once, and no "error".
    static QString authorizationCode(const QUrl& callback, const QString& state);

private:
    using Body = std::vector<std::pair<QString, QString>>;

    QCoro::Task<QByteArray> request(QString path, QByteArray method, std::optional<Body> body,
                                    std::optional<QString> accessToken);
    QCoro::Task<LaunchTokens> validTokens();
    QCoro::Task<LaunchTokens> refreshTokens(LaunchTokens tokens);
    QCoro::Task<LaunchTokens> storedTokens();
    QCoro::Task<LaunchTokens> savedTokensFrom(QByteArray tokenResponse);

    LaunchConfiguration m_configuration;
    std::shared_ptr<LaunchTokenStore> m_tokenStore;
    std::shared_ptr<BrowserSignIn> m_browser;
    HttpTransfer m_transfer;
    std::function<QDateTime()> m_now;
};
