#pragma once

#include "HttpsTestServer.h"
#include "SampleWebsite.h"
#include "account/LaunchTokenStore.h"
#include "account/ProductionWebsiteAccountProvider.h"
#include "foundation/LaunchConfiguration.h"
#include "platform/BrowserSignIn.h"
#include "platform/SecretStore.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QRandomGenerator>
#include <QSaveFile>
#include <QStringList>
#include <memory>
#include <optional>
#include <qcorosignal.h>

// The sample website of the sample run, serving a data folder written for one benchmark: the
// account, a catalogue and pack manifest of one pack whose assets are large files, and a release
// manifest that publishes an archive. The benchmarks reach it only through its own endpoints.
namespace BenchWebsite {

inline const QString packID = QStringLiteral("bench-pack");

struct Release {
    QString version;
    int build = 0;
    QString archiveName; // in the data folder's "updates"
};

inline void writeFile(const QString& path, const QByteArray& content) {
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit())
        qFatal("cannot write %s", qPrintable(path));
}

inline void writeObject(const QString& path, const QJsonObject& object) {
    writeFile(path, QJsonDocument(object).toJson());
}

// Random bytes, which no transfer can compress.
inline void writeRandomFile(const QString& path, qint64 bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        qFatal("cannot write %s", qPrintable(path));
    QByteArray block(1 << 20, Qt::Uninitialized);
    for (qint64 written = 0; written < bytes; written += block.size()) {
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(block.data()),
                                              block.size() / 4);
        file.write(block.constData(), std::min<qint64>(block.size(), bytes - written));
    }
}

// The documents of the data folder. Each of `assetFiles` (paths under "files/") becomes an asset
// of the pack; the website publishes their digests and sizes itself.
inline void writeDocuments(const QString& dataFolder, const QStringList& assetFiles,
                           const std::optional<Release>& release) {
    const QDir data(dataFolder);
    writeObject(data.filePath(QStringLiteral("account.json")),
                {{QStringLiteral("customerID"), QStringLiteral("cus_bench")},
                 {QStringLiteral("displayName"), QStringLiteral("Benchmark")},
                 {QStringLiteral("email"), QStringLiteral("bench@vantor.example")},
                 {QStringLiteral("plan"), QStringLiteral("Director Studio")}});
    writeObject(data.filePath(QStringLiteral("catalogue.json")),
                {{QStringLiteral("contentPacks"),
                  QJsonArray{QJsonObject{{QStringLiteral("id"), packID},
                                         {QStringLiteral("displayName"), QStringLiteral("Bench")},
                                         {QStringLiteral("version"), QStringLiteral("1")},
                                         {QStringLiteral("contentCount"), assetFiles.size()},
                                         {QStringLiteral("active"), true}}}},
                 {QStringLiteral("products"), QJsonArray{}}});
    QJsonArray assets;
    for (const QString& file : assetFiles) {
        const QString id = QFileInfo(file).completeBaseName();
        assets.append(QJsonObject{{QStringLiteral("id"), id},
                                  {QStringLiteral("name"), id},
                                  {QStringLiteral("category"), QStringLiteral("Backgrounds")},
                                  {QStringLiteral("version"), 1},
                                  {QStringLiteral("contentPackID"), packID},
                                  {QStringLiteral("contentPackVersion"), QStringLiteral("1")},
                                  {QStringLiteral("mediaType"), QStringLiteral("video")},
                                  {QStringLiteral("remoteProtectedAssetURL"),
                                   QString(QStringLiteral("/files/") + file)}});
    }
    writeObject(data.filePath(QStringLiteral("creator-backgrounds.json")),
                {{QStringLiteral("contentPacks"),
                  QJsonArray{QJsonObject{{QStringLiteral("id"), packID},
                                         {QStringLiteral("name"), QStringLiteral("Bench")},
                                         {QStringLiteral("version"), QStringLiteral("1")}}}},
                 {QStringLiteral("assets"), assets}});
    QJsonObject releases;
    if (release)
        releases.insert(QStringLiteral("direct"),
                        QJsonObject{{QStringLiteral("version"), release->version},
                                    {QStringLiteral("build"), release->build},
                                    {QStringLiteral("downloadURL"),
                                     QString(QStringLiteral("/updates/") + release->archiveName)}});
    writeObject(data.filePath(QStringLiteral("updates/macos.json")), releases);
    QDir().mkpath(data.filePath(QStringLiteral("files")));
}

// The website on loopback with the two files the sample run writes: its authority, for curl and
// openssl, and the launcher's configuration, read back the way the launcher reads it.
class Site {
public:
    Site(const QString& dataFolder, const QString& workFolder) {
        SampleWebsite::Options options;
        options.dataFolder = dataFolder;
        options.approveAutomatically = true;
        m_website = std::make_unique<SampleWebsite>(m_server, options);
        authorityPath = QDir(workFolder).filePath(QStringLiteral("sample-website-ca.pem"));
        writeFile(authorityPath, m_server.authority().certificatePem());
        const QString configurationPath =
            QDir(workFolder).filePath(QStringLiteral("launcher-configuration.json"));
        writeObject(configurationPath, m_website->launcherConfiguration(authorityPath));
        configuration = LaunchConfiguration::fromFile(configurationPath);
    }

    std::shared_ptr<QNetworkAccessManager> makeNetworkAccess() const {
        return m_server.makeNetworkAccess();
    }

    QString authorityPath;
    LaunchConfiguration configuration;

private:
    HttpsTestServer m_server;
    std::unique_ptr<SampleWebsite> m_website;
};

// The user's part of sign-in on a website that approves at once: the browser opens the page and
// hands its redirect back to the launcher.
class ApprovingBrowser : public BrowserSignIn {
public:
    explicit ApprovingBrowser(std::shared_ptr<QNetworkAccessManager> network)
        : m_network(std::move(network)) {}

    QCoro::Task<QUrl> authenticate(QUrl url, QString) override {
        QNetworkRequest request(url);
        request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                             QNetworkRequest::ManualRedirectPolicy);
        std::unique_ptr<QNetworkReply> reply(m_network->get(request));
        co_await qCoro(reply.get(), &QNetworkReply::finished);
        co_return QUrl(QString::fromUtf8(reply->rawHeader("Location")));
    }
    void cancel() override {}

private:
    std::shared_ptr<QNetworkAccessManager> m_network;
};

// Keeps the session in memory: the benchmark measures transfers, not the desktop's secret store.
class MemorySecrets : public SecretStore {
public:
    QCoro::Task<ReadResult> read(QString service, QString account) override {
        const auto item = m_items.constFind(service + u'/' + account);
        co_return item == m_items.cend() ? ReadResult{Status::itemNotFound, {}}
                                         : ReadResult{Status::success, *item};
    }
    QCoro::Task<Status> write(QString service, QString account, QByteArray secret) override {
        m_items.insert(service + u'/' + account, secret);
        co_return Status::success;
    }
    QCoro::Task<Status> remove(QString service, QString account) override {
        co_return m_items.remove(service + u'/' + account) ? Status::success : Status::itemNotFound;
    }

private:
    QHash<QString, QByteArray> m_items;
};

// The launcher's own account client, signed in to the site.
inline std::shared_ptr<ProductionWebsiteAccountProvider>
makeAccountClient(const Site& site, std::shared_ptr<QNetworkAccessManager> network) {
    return std::make_shared<ProductionWebsiteAccountProvider>(
        site.configuration, std::make_shared<LaunchTokenStore>(std::make_shared<MemorySecrets>()),
        std::make_shared<ApprovingBrowser>(network), network,
        [] { return QDateTime::currentDateTimeUtc(); });
}

} // namespace BenchWebsite
