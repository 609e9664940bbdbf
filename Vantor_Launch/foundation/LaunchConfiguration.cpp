#include "foundation/LaunchConfiguration.h"

#include "foundation/BuildSettings.h"
#include "foundation/LaunchError.h"
#include "foundation/StrictJson.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSslCertificate>
#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// A development configuration is a few hundred bytes.
constexpr qint64 maximumConfigurationFileSize = 1024 * 1024;
// Generous for a bundle of authorities: the whole system store in PEM is about 200 KB.
constexpr qint64 maximumCertificateFileSize = 1024 * 1024;

constexpr const char* trustedCertificateAuthoritiesKey = "trustedCertificateAuthorities";
constexpr const char* codeSigningAnchorsKey = "codeSigningAnchors";

// The certificates of one PEM file, refused unless it holds at least one and nothing else.
QByteArray readCertificateFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw LaunchError::file(
            QCoreApplication::translate("LaunchConfiguration",
                                        "The certificate file %1 could not be read.")
                .arg(path));
    const QByteArray contents = file.read(maximumCertificateFileSize + 1);
    if (contents.size() > maximumCertificateFileSize)
        throw LaunchError::file(QCoreApplication::translate("LaunchConfiguration",
                                                            "The certificate file %1 is too large.")
                                    .arg(path));
    const QList<QSslCertificate> certificates = QSslCertificate::fromData(contents, QSsl::Pem);
    const bool allValid = std::none_of(certificates.cbegin(), certificates.cend(),
                                       [](const QSslCertificate& one) { return one.isNull(); });
    if (certificates.isEmpty() || !allValid)
        throw LaunchError::file(
            QCoreApplication::translate("LaunchConfiguration",
                                        "The certificate file %1 holds no PEM certificate.")
                .arg(path));
    return contents;
}

QList<QByteArray> readCertificateFiles(const JsonObject& document, const char* key,
                                       const QDir& base) {
    QList<QByteArray> certificates;
    for (const QString& path : document.optionalStrings(key).value_or(QStringList{}))
        certificates.append(readCertificateFile(base.absoluteFilePath(path)));
    return certificates;
}

QUrl httpsUrl(const char* host, const QString& pathAndQuery) {
    return QUrl(u"https://"_s + QLatin1String(host) + pathAndQuery);
}

} // namespace

LaunchConfiguration LaunchConfiguration::production() {
    LaunchConfiguration configuration;
    configuration.director = {u"Vantor Director"_s,
                              {u"nz.co.halvex.VantorDirector"_s, u"nz.co.halvex.Pellomar"_s},
                              u"VantorDirectorLogo"_s};
    configuration.creator = {
        u"Vantor Creator"_s, {u"nz.co.halvex.Vantor-Creator"_s}, u"VantorCreatorLogo"_s};
    configuration.authenticationStartURL = httpsUrl(
        LAUNCHER_WEBSITE_HOST, u"/index.php?option=com_vantordirector&task=launch.authorize"_s);
    configuration.authenticationCallbackScheme = u"vantor-launch"_s;
    configuration.accountAPIBaseURL = httpsUrl(LAUNCHER_API_HOST, {});
    configuration.releaseMetadataURL = httpsUrl(LAUNCHER_WEBSITE_HOST, u"/updates/macos.json"_s);
    configuration.catalogueURL = httpsUrl(LAUNCHER_API_HOST, u"/v1/catalogue"_s);
    configuration.accountSettingsURL =
        httpsUrl(LAUNCHER_WEBSITE_HOST, QLatin1String(LAUNCHER_ACCOUNT_PAGE_PATH));
    configuration.downloadsURL = httpsUrl(LAUNCHER_WEBSITE_HOST, u"/resources/downloads"_s);
    configuration.contentDetailsURL =
        httpsUrl(LAUNCHER_WEBSITE_HOST, u"/resources/downloads#creator-assets"_s);
    configuration.supportURL = httpsUrl(LAUNCHER_WEBSITE_HOST, u"/support-pages/contact"_s);
    configuration.privacyURL = httpsUrl(LAUNCHER_WEBSITE_HOST, u"/privacy-policy"_s);
    return configuration;
}

JsonObject LaunchConfiguration::readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw LaunchError::file(
            QCoreApplication::translate("LaunchConfiguration",
                                        "The configuration file %1 could not be read.")
                .arg(path));
    const QByteArray contents = file.read(maximumConfigurationFileSize + 1);
    if (contents.size() > maximumConfigurationFileSize)
        throw LaunchError::decoding(u"The configuration file %1 is too large."_s.arg(path));
    return JsonObject::parse(contents);
}

LaunchConfiguration LaunchConfiguration::fromFile(const QString& path) {
    const JsonObject document = readFile(path);
    LaunchConfiguration configuration = fromDocument(document);
    const QDir base = QFileInfo(path).absoluteDir();
    configuration.trustedCertificateAuthorities =
        readCertificateFiles(document, trustedCertificateAuthoritiesKey, base);
    configuration.codeSigningAnchors = readCertificateFiles(document, codeSigningAnchorsKey, base);
    return configuration;
}

LaunchConfiguration LaunchConfiguration::fromDocument(const JsonObject& document) {
    LaunchConfiguration configuration = production();

    // A key that is present replaces the production value; an explicit null removes it.
    const auto url = [&](const char* key, std::optional<QUrl>& field) {
        if (!document.raw().contains(key))
            return;
        const auto text = document.optionalString(key);
        field = text ? std::optional<QUrl>(QUrl(*text)) : std::nullopt;
    };
    url("authenticationStartURL", configuration.authenticationStartURL);
    url("accountAPIBaseURL", configuration.accountAPIBaseURL);
    url("releaseMetadataURL", configuration.releaseMetadataURL);
    url("catalogueURL", configuration.catalogueURL);
    url("accountSettingsURL", configuration.accountSettingsURL);
    url("downloadsURL", configuration.downloadsURL);
    url("contentDetailsURL", configuration.contentDetailsURL);
    url("supportURL", configuration.supportURL);
    url("privacyURL", configuration.privacyURL);
    if (document.raw().contains("authenticationCallbackScheme"))
        configuration.authenticationCallbackScheme =
            document.optionalString("authenticationCallbackScheme");
    if (const auto service = document.optionalString("secretStoreService")) {
        if (service->isEmpty())
            throw LaunchError::decoding(u"The secret store service name is empty."_s);
        configuration.secretStoreService = *service;
    }
    // Only fromFile knows where relative certificate paths start, so it reads them; a list of the
    // wrong shape is refused here all the same.
    document.optionalStrings(trustedCertificateAuthoritiesKey);
    document.optionalStrings(codeSigningAnchorsKey);
    return configuration;
}

QStringList LaunchConfiguration::integrationStatus() const {
    QStringList missing;
    if (!authenticationStartURL)
        missing.append(QCoreApplication::translate(
            "LaunchConfiguration", "Website authentication start endpoint and callback contract"));
    if (!accountAPIBaseURL)
        missing.append(QCoreApplication::translate("LaunchConfiguration",
                                                   "Website account API schema contract"));
    if (!releaseMetadataURL)
        missing.append(
            QCoreApplication::translate("LaunchConfiguration", "Release metadata contract"));
    if (!catalogueURL)
        missing.append(QCoreApplication::translate("LaunchConfiguration",
                                                   "Public Content Pack catalogue contract"));
    return missing;
}

const LaunchConfiguration::Product&
LaunchConfiguration::productNamed(const QString& applicationName) const {
    return applicationName == director.name ? director : creator;
}
