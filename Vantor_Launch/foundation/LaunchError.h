#pragma once

#include <QString>
#include <exception>
#include <type_traits>

// An enumeration of failures: its errorDomain() is what makes it one.
template <typename Case>
concept LaunchErrorCase = std::is_enum_v<Case> && requires(Case error) {
    errorDomain(error);
};

// The one error value of the launcher. Services throw it; flows catch it and show description(),
// which is always the fixed sentence of its case, translated when a translation is installed.
//
// Each family of failures is an enumeration with two functions found by argument-dependent
// lookup: errorDomain(case), the domain its errors carry, and errorDescription(case), its
// sentence (with %1 where a name goes). LaunchError(case) builds the error and error.is(case)
// recognises it, so nobody compares raw codes.
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

    template <LaunchErrorCase Case>
    explicit LaunchError(Case error)
        : LaunchError(errorDomain(error), int(error), errorDescription(error)) {}
    // For the sentences that name something: the argument fills their %1.
    template <LaunchErrorCase Case>
    LaunchError(Case error, const QString& argument)
        : LaunchError(errorDomain(error), int(error), errorDescription(error).arg(argument)) {}

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

    // Whether this error is that case of its family.
    template <LaunchErrorCase Case>
    bool is(Case error) const {
        return m_domain == errorDomain(error) && m_code == int(error);
    }
    bool is(UrlCode urlCode) const { return m_domain == Domain::url && m_code == urlCode; }
    bool isUrlError(UrlCode urlCode) const { return is(urlCode); }
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

// What the website account API answered instead of what was asked. The values are the HTTP
// statuses that mean them.
enum class WebsiteAPIError {
    forbidden = 403,
    // The live API does not serve the pack download manifest yet.
    notFound = 404,
};

constexpr LaunchError::Domain errorDomain(WebsiteAPIError) {
    return LaunchError::Domain::websiteAPI;
}
QString errorDescription(WebsiteAPIError error);

// A part of the production integration that this build was not given (a contract, an endpoint, a
// platform service). Its sentence names the part.
enum class ProductionIntegrationError {
    notConfigured,
};

constexpr LaunchError::Domain errorDomain(ProductionIntegrationError) {
    return LaunchError::Domain::integration;
}
QString errorDescription(ProductionIntegrationError error);
