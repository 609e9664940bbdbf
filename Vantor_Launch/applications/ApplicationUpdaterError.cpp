#include "applications/ApplicationUpdaterError.h"

#include <QCoreApplication>

namespace {

const char* text(ApplicationUpdaterError error) {
    switch (error) {
    case ApplicationUpdaterError::missingDownload:
        return QT_TRANSLATE_NOOP("ApplicationUpdaterError",
                                 "This release does not include a direct download.");
    case ApplicationUpdaterError::insecureDownload:
        return QT_TRANSLATE_NOOP("ApplicationUpdaterError",
                                 "The update download is not served over HTTPS.");
    case ApplicationUpdaterError::applicationRunning:
        return QT_TRANSLATE_NOOP("ApplicationUpdaterError",
                                 "Close Vantor Director before installing the update.");
    case ApplicationUpdaterError::invalidArchive:
        return QT_TRANSLATE_NOOP("ApplicationUpdaterError",
                                 "The downloaded update does not contain Vantor Director.");
    case ApplicationUpdaterError::invalidBundle:
        return QT_TRANSLATE_NOOP("ApplicationUpdaterError",
                                 "The downloaded application identity is not valid.");
    case ApplicationUpdaterError::unexpectedVersion:
        return QT_TRANSLATE_NOOP(
            "ApplicationUpdaterError",
            "The downloaded application version does not match the published release.");
    case ApplicationUpdaterError::invalidSignature:
        return QT_TRANSLATE_NOOP("ApplicationUpdaterError",
                                 "The downloaded application’s code signature is not valid.");
    case ApplicationUpdaterError::signingIdentityMismatch:
        return QT_TRANSLATE_NOOP("ApplicationUpdaterError",
                                 "The downloaded application is not signed by the same developer "
                                 "as the installed copy.");
    case ApplicationUpdaterError::preparedReleaseChanged:
        return QT_TRANSLATE_NOOP(
            "ApplicationUpdaterError",
            "The downloaded update changed after it was checked. Download it again.");
    }
    return "";
}

} // namespace

QString errorDescription(ApplicationUpdaterError error) {
    return QCoreApplication::translate("ApplicationUpdaterError", text(error));
}

LaunchError makeLaunchError(ApplicationUpdaterError error) {
    return LaunchError(error);
}

bool isUpdaterError(const LaunchError& error, ApplicationUpdaterError expected) {
    return error.is(expected);
}
