#include "content_packs/LaunchContentPackInstallerError.h"

#include <QCoreApplication>

using Case = LaunchContentPackInstallerError::Case;

namespace {

const char* text(Case error) {
    switch (error) {
    case Case::missingIntegrity:
        return QT_TRANSLATE_NOOP("LaunchContentPackInstallerError",
                                 "The server did not provide an integrity value for %1.");
    case Case::integrityFailure:
        return QT_TRANSLATE_NOOP("LaunchContentPackInstallerError",
                                 "%1 failed its integrity check. Nothing was installed.");
    case Case::rejected:
        return QT_TRANSLATE_NOOP("LaunchContentPackInstallerError",
                                 "The content server rejected the download (HTTP %1).");
    case Case::packUnavailable:
        return QT_TRANSLATE_NOOP(
            "LaunchContentPackInstallerError",
            "This Content Pack is not available to your account for download.");
    case Case::unusableName:
        return QT_TRANSLATE_NOOP("LaunchContentPackInstallerError",
                                 "The content server described this Content Pack with names that "
                                 "cannot be used as file names. Nothing was installed.");
    }
    return "";
}

} // namespace

QString errorDescription(Case error) {
    return QCoreApplication::translate("LaunchContentPackInstallerError", text(error));
}

LaunchError LaunchContentPackInstallerError::missingIntegrity(const QString& assetName) {
    return LaunchError(Case::missingIntegrity, assetName);
}

LaunchError LaunchContentPackInstallerError::integrityFailure(const QString& assetName) {
    return LaunchError(Case::integrityFailure, assetName);
}

LaunchError LaunchContentPackInstallerError::rejected(int httpStatus) {
    return LaunchError(Case::rejected, QString::number(httpStatus));
}

LaunchError LaunchContentPackInstallerError::packUnavailable() {
    return LaunchError(Case::packUnavailable);
}

LaunchError LaunchContentPackInstallerError::unusableName() {
    return LaunchError(Case::unusableName);
}
