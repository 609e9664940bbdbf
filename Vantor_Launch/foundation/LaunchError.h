#pragma once

#include <QString>
#include <exception>

// The one error value of the launcher. Services throw it; flows catch it and show description(),
// which is always the fixed English sentence of its case.
class LaunchError : public std::exception {
public:
    enum class Domain {
        url,
        updater,
        websiteAPI,
        integration,
        snapshot,
        installer,
        decoding,
        file
    };

    // The failures of URL loading that the flows tell apart, named by what they mean.
    enum UrlCode {
        unknown,
        cancelled,
        badURL,
        timedOut,
        unsupportedURL,
        cannotFindHost,
        cannotConnectToHost,
        networkConnectionLost,
        notConnectedToInternet,
        badServerResponse,
        cannotParseResponse,
        userAuthenticationRequired,
        secureConnectionFailed,
        cannotLoadFromNetwork,
    };

    LaunchError(Domain domain, int code, QString description, QString detail = {});

    static LaunchError url(UrlCode code);
    static LaunchError notConfigured(const QString& contractName);
    // The user sees the fixed sentence only; the detail (where the document went wrong) is for
    // log lines and debugging.
    static LaunchError decoding(const QString& detail);
    static LaunchError file(const QString& detail);

    Domain domain() const { return m_domain; }
    int code() const { return m_code; }
    const QString& description() const { return m_description; }
    const QString& detail() const { return m_detail; }

    // What the user is told about a failure that ended a flow: the description of a LaunchError,
    // and one generic sentence for anything else (whose own text is logged, never shown).
    static QString describe(const std::exception& error);
    static QString unexpectedFailureDescription();

    bool isUrlError(UrlCode urlCode) const { return m_domain == Domain::url && m_code == urlCode; }
    // Offline in the launcher's sense: the request never reached the website.
    bool isOffline() const;

    // The description followed by the detail, for logs.
    const char* what() const noexcept override { return m_utf8.constData(); }

private:
    Domain m_domain;
    int m_code;
    QString m_description;
    QString m_detail;
    QByteArray m_utf8;
};
