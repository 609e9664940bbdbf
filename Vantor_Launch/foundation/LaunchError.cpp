#include "foundation/LaunchError.h"

#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcFailures, "vantor.launch.failures")

LaunchError::LaunchError(Domain domain, int code, QString description, QString detail)
    : m_domain(domain)
    , m_code(code)
    , m_description(std::move(description))
    , m_detail(std::move(detail))
    , m_utf8((m_detail.isEmpty() ? m_description : m_description + u' ' + m_detail).toUtf8()) {}

LaunchError LaunchError::url(UrlCode code) {
    QString text;
    switch (code) {
    case cancelled:
        text = u"The operation was cancelled."_s;
        break;
    case badURL:
        text = u"The address is not valid."_s;
        break;
    case timedOut:
        text = u"The request timed out."_s;
        break;
    case unsupportedURL:
        text = u"The address is not supported."_s;
        break;
    case cannotFindHost:
        text = u"A server with the specified hostname could not be found."_s;
        break;
    case cannotConnectToHost:
        text = u"Could not connect to the server."_s;
        break;
    case networkConnectionLost:
        text = u"The network connection was lost."_s;
        break;
    case notConnectedToInternet:
        text = u"The Internet connection appears to be offline."_s;
        break;
    case badServerResponse:
        text = u"The server returned an unexpected response."_s;
        break;
    case cannotParseResponse:
        text = u"The server’s response could not be read."_s;
        break;
    case cannotLoadFromNetwork:
        text = u"The page could not be loaded from the network."_s;
        break;
    case userAuthenticationRequired:
        text = u"Authentication is required to access this resource."_s;
        break;
    case secureConnectionFailed:
        text = u"A secure connection to the server could not be made."_s;
        break;
    case unknown:
        text = u"The request could not be completed."_s;
        break;
    }
    return LaunchError(Domain::url, code, text);
}

LaunchError LaunchError::notConfigured(const QString& contractName) {
    return LaunchError(Domain::integration, 0,
                       contractName + u" is not configured in this build."_s);
}

LaunchError LaunchError::decoding(const QString& detail) {
    return LaunchError(Domain::decoding, 0,
                       u"The data couldn’t be read because it isn’t in the correct format."_s,
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
    return u"Vantor Launcher could not complete the operation."_s;
}

QString LaunchError::describe(const std::exception& error) {
    if (const auto* launchError = dynamic_cast<const LaunchError*>(&error))
        return launchError->description();
    qCWarning(lcFailures) << "A flow ended with an unexpected failure:" << error.what();
    return unexpectedFailureDescription();
}
