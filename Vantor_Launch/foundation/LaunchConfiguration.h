#pragma once

#include "foundation/StrictJson.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <optional>

// Which products the launcher manages and where the website's services live. Every endpoint is
// optional: a missing one switches its feature off instead of failing.
struct LaunchConfiguration {
    struct Product {
        QString name;
        QStringList bundleIdentifiers; // preferred first
        QString logoAsset;

        // Exact, case-sensitive membership: the one identifier rule of the whole launcher.
        bool isVerifiedIdentifier(const QString& bundleIdentifier) const {
            return bundleIdentifiers.contains(bundleIdentifier, Qt::CaseSensitive);
        }
        friend bool operator==(const Product&, const Product&) = default;
    };

    Product director;
    Product creator;
    std::optional<QUrl> authenticationStartURL;
    std::optional<QString> authenticationCallbackScheme;
    std::optional<QUrl> accountAPIBaseURL;
    std::optional<QUrl> releaseMetadataURL;
    std::optional<QUrl> catalogueURL;
    std::optional<QUrl> accountSettingsURL;
    std::optional<QUrl> downloadsURL;
    std::optional<QUrl> contentDetailsURL;
    std::optional<QUrl> supportURL;
    std::optional<QUrl> privacyURL;
    // The secret-store item that keeps the website session. A sample or development website gets
    // an item of its own, so that its sessions never replace the user's real one.
    QString secretStoreService = productionSecretStoreService;

    // Development trust, empty in production: PEM certificates read from the files that the
    // configuration file names. HTTPS trusts these authorities besides the system's; bundle
    // signatures trust these anchors besides the system's and the build's.
    QList<QByteArray> trustedCertificateAuthorities;
    QList<QByteArray> codeSigningAnchors;

    static inline const QString productionSecretStoreService =
        QStringLiteral("nz.co.halvex.VantorLaunch.website-session");

    static LaunchConfiguration production();

    // Reads a development configuration that points the endpoints elsewhere (JSON object whose
    // keys are the field names above; a missing key leaves the production value, null removes
    // it). The two trust keys hold lists of PEM file paths, relative ones taken from the
    // configuration file's folder; each file is read here. Throws LaunchError when the file or a
    // certificate file is unreadable, too large or malformed.
    static LaunchConfiguration fromFile(const QString& path);
    // The same for a document already read: the production values with the document's keys
    // applied. The trust keys' shape is checked but their files are not read. Throws LaunchError
    // for a document of the wrong shape.
    static LaunchConfiguration fromDocument(const JsonObject& document);
    // The development configuration file as a JSON object, for the settings that live outside
    // this record. Throws LaunchError like fromFile.
    static JsonObject readFile(const QString& path);

    // The names of the production contracts that this configuration lacks, in display order.
    QStringList integrationStatus() const;

    // The Director product when the name is the Director's, the Creator product otherwise.
    const Product& productNamed(const QString& applicationName) const;

    bool isSignInConfigured() const {
        return authenticationStartURL && authenticationCallbackScheme && accountAPIBaseURL;
    }

    friend bool operator==(const LaunchConfiguration&, const LaunchConfiguration&) = default;
};
