#include "account/ProductionWebsiteAccountProvider.h"

#include "account/WebsiteResponses.h"

#include <QCoreApplication>
#include <QNetworkRequest>
#include <QRandomGenerator>
#include <QUrlQuery>
#include <algorithm>
#include <nlohmann/json.hpp>

using namespace Qt::StringLiterals;

// Arguments of awaited calls are named before the co_await: GCC 12 miscompiles temporaries
// built inside a co_await expression.
namespace {

const QString tokenPath = u"/v1/launch/token"_s;
const QString refreshPath = u"/v1/launch/token/refresh"_s;
const QString accountPath = u"/v1/launch/account"_s;
const QString signOutPath = u"/v1/launch/sign-out"_s;
const QString manifestPath = u"/v1/launch/creator-backgrounds"_s;
const QByteArray get = QByteArrayLiteral("GET");
const QByteArray post = QByteArrayLiteral("POST");

LaunchError sessionRequired() {
    return LaunchError::url(LaunchError::userAuthenticationRequired);
}

} // namespace

ProductionWebsiteAccountProvider::ProductionWebsiteAccountProvider(
    LaunchConfiguration configuration, std::shared_ptr<LaunchTokenStore> tokenStore,
    std::shared_ptr<BrowserSignIn> browser, std::shared_ptr<QNetworkAccessManager> network,
    std::function<QDateTime()> now)
    : m_configuration(std::move(configuration))
    , m_tokenStore(std::move(tokenStore))
    , m_browser(std::move(browser))
    , m_transfer(std::move(network))
    , m_now(std::move(now)) {}

QString ProductionWebsiteAccountProvider::makeState() {
    QByteArray bytes(32, Qt::Uninitialized);
    for (char& byte : bytes)
        byte = char(QRandomGenerator::system()->bounded(256));
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QUrl ProductionWebsiteAccountProvider::startURL(const QUrl& authenticationStartURL,
                                                const QString& state) {
    if (!authenticationStartURL.isValid())
        throw LaunchError::url(LaunchError::badURL);
    QUrl url = authenticationStartURL;
    QUrlQuery query(url);
    query.addQueryItem(u"state"_s, state); // base64url: nothing to escape
    url.setQuery(query);
    if (!url.isValid())
        throw LaunchError::url(LaunchError::badURL);
    return url;
}

QString ProductionWebsiteAccountProvider::authorizationCode(const QUrl& callback,
                                                            const QString& state) {
    if (!callback.isValid())
        throw sessionRequired();
    const auto items = QUrlQuery(callback).queryItems(QUrl::FullyDecoded);
    const auto firstNamed = [&](const QString& name) -> std::optional<QString> {
        for (const auto& [key, value] : items) {
            if (key == name)
                return value;
        }
        return std::nullopt;
    };
    // Exactly one state, and ours: a second one could smuggle in a value that is checked by no
    // one along the way.
    const auto returnedState = firstNamed(u"state"_s);
    const auto stateItems = std::count_if(
        items.cbegin(), items.cend(), [](const auto& item) { return item.first == u"state"_s; });
    if (!returnedState || stateItems != 1 || returnedState->isEmpty() || *returnedState != state)
        throw sessionRequired();
    if (firstNamed(u"error"_s))
        throw sessionRequired();
    const auto code = firstNamed(u"code"_s);
    if (!code || code->isEmpty())
        throw LaunchError::url(LaunchError::cannotParseResponse);
    return *code;
}

QCoro::Task<QByteArray>
ProductionWebsiteAccountProvider::request(QString path, QByteArray method, std::optional<Body> body,
                                          std::optional<QString> accessToken) {
    if (!m_configuration.accountAPIBaseURL)
        throw LaunchError::url(LaunchError::badURL);
    const QUrl url = m_configuration.accountAPIBaseURL->resolved(QUrl(path));
    if (!url.isValid() || url.isRelative())
        throw LaunchError::url(LaunchError::badURL);

    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setTransferTimeout(requestTimeoutMilliseconds);
    // The bearer token must never follow a redirect to another host.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
    request.setRawHeader("Accept", "application/json");
    QByteArray payload;
    if (body) {
        nlohmann::json object = nlohmann::json::object();
        for (const auto& [key, value] : *body)
            object[key.toStdString()] = value.toStdString();
        payload = QByteArray::fromStdString(object.dump());
        request.setRawHeader("Content-Type", "application/json");
    }
    if (accessToken)
        request.setRawHeader("Authorization", "Bearer " + accessToken->toUtf8());

    const HttpTransfer::Response response = co_await m_transfer.send(request, method, payload);
    if (response.status >= 200 && response.status <= 299)
        co_return response.body;
    switch (response.status) {
    case int(WebsiteAPIError::notFound):
        throw LaunchError(WebsiteAPIError::notFound);
    case int(WebsiteAPIError::forbidden):
        throw LaunchError(WebsiteAPIError::forbidden);
    case 401:
        throw sessionRequired();
    default:
        throw LaunchError::url(LaunchError::badServerResponse);
    }
}

QCoro::Task<LaunchTokens> ProductionWebsiteAccountProvider::storedTokens() {
    const std::optional<LaunchTokens> tokens = co_await m_tokenStore->load();
    if (!tokens)
        throw sessionRequired();
    co_return *tokens;
}

QCoro::Task<LaunchTokens> ProductionWebsiteAccountProvider::validTokens() {
    const LaunchTokens tokens = co_await storedTokens();
    if (tokens.expiresAt > m_now().addSecs(refreshMarginSeconds))
        co_return tokens;
    co_return co_await refreshTokens(tokens);
}

QCoro::Task<LaunchTokens> ProductionWebsiteAccountProvider::savedTokensFrom(QByteArray answer) {
    const WebsiteResponses::TokenResponse response = WebsiteResponses::decodeTokenResponse(answer);
    const LaunchTokens tokens{response.accessToken, response.refreshToken,
                              m_now().addSecs(response.expiresIn)};
    co_await m_tokenStore->save(tokens);
    co_return tokens;
}

QCoro::Task<LaunchTokens> ProductionWebsiteAccountProvider::refreshTokens(LaunchTokens tokens) {
    const std::optional<Body> body = Body{{u"refreshToken"_s, tokens.refreshToken}};
    const std::optional<QString> noToken;
    const QByteArray answer = co_await request(refreshPath, post, body, noToken);
    co_return co_await savedTokensFrom(answer);
}

QCoro::Task<WebsiteAccount> ProductionWebsiteAccountProvider::refreshAccount() {
    const LaunchTokens tokens = co_await validTokens();
    const std::optional<QString> bearer = tokens.accessToken;
    const std::optional<Body> noBody;
    const QByteArray answer = co_await request(accountPath, get, noBody, bearer);
    co_return WebsiteResponses::decodeAccountResponse(answer);
}

QCoro::Task<> ProductionWebsiteAccountProvider::signOut() {
    std::optional<LaunchTokens> tokens;
    try {
        tokens = co_await m_tokenStore->load();
    } catch (const std::exception&) {
        // Unreadable tokens cannot be signed out on the website; they are still deleted below.
    }
    if (tokens) {
        try {
            const std::optional<QString> bearer = tokens->accessToken;
            const std::optional<Body> noBody;
            const QByteArray answer = co_await request(signOutPath, post, noBody, bearer);
            WebsiteResponses::decodeSignOutResponse(answer);
        } catch (const std::exception&) {
            // Best effort: the local session goes whatever the website says.
        }
    }
    co_await m_tokenStore->remove();
}

QCoro::Task<LaunchContentPackManifest>
ProductionWebsiteAccountProvider::downloadContentPackManifest() {
    const LaunchTokens tokens = co_await validTokens();
    const std::optional<Body> noBody;
    try {
        const std::optional<QString> bearer = tokens.accessToken;
        const QByteArray answer = co_await request(manifestPath, get, noBody, bearer);
        co_return WebsiteResponses::decodeContentPackManifest(answer);
    } catch (const LaunchError& error) {
        if (!error.isUrlError(LaunchError::userAuthenticationRequired))
            throw;
    }
    // The website ended the session early: one forced refresh, one more try.
    const LaunchTokens renewed = co_await refreshTokens(tokens);
    const std::optional<QString> bearer = renewed.accessToken;
    const QByteArray answer = co_await request(manifestPath, get, noBody, bearer);
    co_return WebsiteResponses::decodeContentPackManifest(answer);
}

QCoro::Task<WebsiteAccount> ProductionWebsiteAccountProvider::signIn() {
    if (!m_configuration.authenticationStartURL || !m_configuration.authenticationCallbackScheme ||
        !m_browser)
        throw LaunchError::notConfigured(QCoreApplication::translate(
            "ProductionWebsiteAccountProvider", "Website account sign-in"));

    const QString state = makeState();
    const QUrl url = startURL(*m_configuration.authenticationStartURL, state);
    const QString scheme = *m_configuration.authenticationCallbackScheme;
    const QUrl callback = co_await m_browser->authenticate(url, scheme);
    const QString code = authorizationCode(callback, state);

    const std::optional<Body> exchange =
        Body{{u"authorizationCode"_s, code}, {u"redirectURI"_s, exchangeRedirectURI}};
    const std::optional<QString> noToken;
    const QByteArray answer = co_await request(tokenPath, post, exchange, noToken);
    co_await savedTokensFrom(answer);
    co_return co_await refreshAccount();
}
