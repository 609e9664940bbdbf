#include "foundation/LaunchError.h"

#include <QCoreApplication>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcFailures, "vantor.launch.failures")

LaunchError::LaunchError(Domain domain, int code, QString description, QString detail)
    : m_domain(domain)
    , m_code(code)
    , m_description(std::move(description))
    , m_detail(std::move(detail))
    , m_utf8((m_detail.isEmpty() ? m_description : m_description + u' ' + m_detail).toUtf8()) {}

namespace {

// The context the tables below file their sentences under.
constexpr const char* context = "LaunchError";

const char* urlText(LaunchError::UrlCode code) {
    switch (code) {
    case LaunchError::cancelled:
        return QT_TRANSLATE_NOOP("LaunchError", "The operation was cancelled.");
    case LaunchError::badURL:
        return QT_TRANSLATE_NOOP("LaunchError", "The address is not valid.");
    case LaunchError::timedOut:
        return QT_TRANSLATE_NOOP("LaunchError", "The request timed out.");
    case LaunchError::unsupportedURL:
        return QT_TRANSLATE_NOOP("LaunchError", "The address is not supported.");
    case LaunchError::cannotFindHost:
        return QT_TRANSLATE_NOOP("LaunchError",
                                 "A server with the specified hostname could not be found.");
    case LaunchError::cannotConnectToHost:
        return QT_TRANSLATE_NOOP("LaunchError", "Could not connect to the server.");
    case LaunchError::networkConnectionLost:
        return QT_TRANSLATE_NOOP("LaunchError", "The network connection was lost.");
    case LaunchError::notConnectedToInternet:
        return QT_TRANSLATE_NOOP("LaunchError", "The Internet connection appears to be offline.");
    case LaunchError::badServerResponse:
        return QT_TRANSLATE_NOOP("LaunchError", "The server returned an unexpected response.");
    case LaunchError::cannotParseResponse:
        return QT_TRANSLATE_NOOP("LaunchError", "The server’s response could not be read.");
    case LaunchError::cannotLoadFromNetwork:
        return QT_TRANSLATE_NOOP("LaunchError", "The page could not be loaded from the network.");
    case LaunchError::userAuthenticationRequired:
        return QT_TRANSLATE_NOOP("LaunchError",
                                 "Authentication is required to access this resource.");
    case LaunchError::secureConnectionFailed:
        return QT_TRANSLATE_NOOP("LaunchError",
                                 "A secure connection to the server could not be made.");
    case LaunchError::unknown:
        break;
    }
    return QT_TRANSLATE_NOOP("LaunchError", "The request could not be completed.");
}

const char* websiteAPIText(WebsiteAPIError error) {
    switch (error) {
    case WebsiteAPIError::forbidden:
        return QT_TRANSLATE_NOOP("LaunchError",
                                 "The Vantor website refused this request for your account.");
    case WebsiteAPIError::notFound:
        return QT_TRANSLATE_NOOP(
            "LaunchError",
            "Content Pack installation is not yet available on the live Vantor API.");
    }
    return "";
}

const char* integrationText(ProductionIntegrationError error) {
    switch (error) {
    case ProductionIntegrationError::notConfigured:
        return QT_TRANSLATE_NOOP("LaunchError", "%1 is not configured in this build.");
    }
    return "";
}

} // namespace

QString errorDescription(WebsiteAPIError error) {
    return QCoreApplication::translate(context, websiteAPIText(error));
}

QString errorDescription(ProductionIntegrationError error) {
    return QCoreApplication::translate(context, integrationText(error));
}

LaunchError LaunchError::url(UrlCode code) {
    return LaunchError(Domain::url, code, QCoreApplication::translate(context, urlText(code)));
}

LaunchError LaunchError::notConfigured(const QString& contractName) {
    return LaunchError(ProductionIntegrationError::notConfigured, contractName);
}

LaunchError LaunchError::decoding(const QString& detail) {
    return LaunchError(
        Domain::decoding, 0,
        QCoreApplication::translate(
            "LaunchError", "The data couldn’t be read because it isn’t in the correct format."),
        detail);
}

LaunchError LaunchError::file(const QString& detail) {
    return LaunchError(Domain::file, 0, detail);
}

bool LaunchError::isOffline() const {
    return m_domain == Domain::url &&
           (m_code == notConnectedToInternet || m_code == networkConnectionLost ||
            m_code == cannotConnectToHost || m_code == cannotFindHost);
}

QString LaunchError::unexpectedFailureDescription() {
    return QCoreApplication::translate("LaunchError",
                                       "Vantor Launcher could not complete the operation.");
}

QString LaunchError::describe(const std::exception& error) {
    if (const auto* launchError = dynamic_cast<const LaunchError*>(&error))
        return launchError->description();
    qCWarning(lcFailures) << "A flow ended with an unexpected failure:" << error.what();
    return unexpectedFailureDescription();
}
