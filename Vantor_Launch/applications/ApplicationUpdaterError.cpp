#include "applications/ApplicationUpdaterError.h"

using namespace Qt::StringLiterals;

QString errorDescription(ApplicationUpdaterError error) {
    switch (error) {
    case ApplicationUpdaterError::missingDownload:
        return u"This release does not include a direct download."_s;
    case ApplicationUpdaterError::insecureDownload:
        return u"The update download is not served over HTTPS."_s;
    case ApplicationUpdaterError::applicationRunning:
        return u"Close Vantor Director before installing the update."_s;
    case ApplicationUpdaterError::invalidArchive:
        return u"The downloaded update does not contain Vantor Director."_s;
    case ApplicationUpdaterError::invalidBundle:
        return u"The downloaded application identity is not valid."_s;
    case ApplicationUpdaterError::unexpectedVersion:
        return u"The downloaded application version does not match the published release."_s;
    case ApplicationUpdaterError::invalidSignature:
        return u"The downloaded application’s code signature is not valid."_s;
    case ApplicationUpdaterError::signingIdentityMismatch:
        return u"The downloaded application is not signed by the same developer as the installed copy."_s;
    case ApplicationUpdaterError::preparedReleaseChanged:
        return u"The downloaded update changed after it was checked. Download it again."_s;
    }
    return {};
}

LaunchError makeLaunchError(ApplicationUpdaterError error) {
    return LaunchError(LaunchError::Domain::updater, int(error), errorDescription(error));
}

bool isUpdaterError(const LaunchError& error, ApplicationUpdaterError expected) {
    return error.domain() == LaunchError::Domain::updater && error.code() == int(expected);
}
