#include "WebsiteFixture.h"

#include "BundleBuilder.h"
#include "account/WebsiteResponses.h"

#include <QDirIterator>
#include <QJsonDocument>
#include <QTest>
#include <QUrlQuery>

using namespace Qt::StringLiterals;

QJsonObject WebsiteFixture::Answer::object() const {
    return QJsonDocument::fromJson(body).object();
}

WebsiteFixture::WebsiteFixture(SampleWebsite::Options options,
                               const QHash<QString, QByteArray>& documents)
    : m_server(std::make_unique<HttpsTestServer>()) {
    if (!documents.isEmpty()) {
        const QDir sample(options.dataFolder);
        QDirIterator files(options.dataFolder, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString target = m_data.filePath(sample.relativeFilePath(files.next()));
            QDir().mkpath(QFileInfo(target).path());
            QFile::copy(files.filePath(), target);
        }
        for (auto document = documents.begin(); document != documents.end(); ++document)
            writeFile(m_data.filePath(document.key()), document.value());
        options.dataFolder = m_data.path();
    }
    m_website = std::make_unique<SampleWebsite>(*m_server, options);
    m_network = m_server->makeNetworkAccess();
}

// Open connections would hold the server's stop for seconds.
WebsiteFixture::~WebsiteFixture() {
    m_network->clearConnectionCache();
    m_network.reset();
    m_website.reset();
    m_server.reset();
}

WebsiteFixture::Answer WebsiteFixture::send(const QString& method, const QUrl& url,
                                            const QString& bearer, const QByteArray& body) {
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    if (!bearer.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + bearer.toLatin1());
    request.setRawHeader("Content-Type", "application/json");
    std::unique_ptr<QNetworkReply> reply(method == u"POST"_s ? m_network->post(request, body)
                                                             : m_network->get(request));
    if (!QTest::qWaitFor([&] { return reply->isFinished(); }, 10000))
        qFatal("the website did not answer");
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->error(),
            reply->readAll(), QString::fromUtf8(reply->rawHeader("Location"))};
}

WebsiteFixture::Answer WebsiteFixture::get(const QString& path, const QString& bearer) {
    return send(u"GET"_s, url(path), bearer);
}

WebsiteFixture::Answer WebsiteFixture::post(const QString& path, const QJsonObject& body,
                                            const QString& bearer) {
    return send(u"POST"_s, url(path), bearer, QJsonDocument(body).toJson());
}

QString WebsiteFixture::authorizationCode(const QString& state) {
    const Answer approved = send(u"GET"_s, m_website->approvalURL(state));
    const QUrl callback(approved.location);
    if (approved.status != 302 || callback.scheme() != u"vantor-launch"_s ||
        callback.host() != u"auth"_s || QUrlQuery(callback).queryItemValue(u"state"_s) != state)
        return {};
    return QUrlQuery(callback).queryItemValue(u"code"_s);
}

LaunchTokens WebsiteFixture::signIn() {
    const QJsonObject exchange{{u"authorizationCode"_s, authorizationCode(u"fixture"_s)},
                               {u"redirectURI"_s, SampleWebsite::callbackURL}};
    const auto tokens =
        WebsiteResponses::decodeTokenResponse(post(u"/v1/launch/token"_s, exchange).body);
    return {tokens.accessToken, tokens.refreshToken,
            QDateTime::currentDateTimeUtc().addSecs(tokens.expiresIn)};
}

LaunchContentPackManifest WebsiteFixture::packManifest() {
    return WebsiteResponses::decodeContentPackManifest(
        get(u"/v1/launch/creator-backgrounds"_s, signIn().accessToken).body);
}
