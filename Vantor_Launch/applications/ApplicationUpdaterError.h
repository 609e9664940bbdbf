#pragma once

#include "foundation/LaunchError.h"

// Why the verified updater refused a release. Thrown as a LaunchError of the updater domain whose
// code is the case; its description is the sentence the user sees.
enum class ApplicationUpdaterError {
    missingDownload,
    insecureDownload,
    applicationRunning,
    invalidArchive,
    invalidBundle, // declared for completeness: no step raises it
    unexpectedVersion,
    invalidSignature,
    signingIdentityMismatch,
    // The prepared release is gone, or its files changed after it was verified.
    preparedReleaseChanged,
};

constexpr LaunchError::Domain errorDomain(ApplicationUpdaterError) {
    return LaunchError::Domain::updater;
}
QString errorDescription(ApplicationUpdaterError error);
LaunchError makeLaunchError(ApplicationUpdaterError error);
// Whether a caught error is this updater case.
bool isUpdaterError(const LaunchError& error, ApplicationUpdaterError expected);
