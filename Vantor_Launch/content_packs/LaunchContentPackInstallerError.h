#pragma once

#include "foundation/LaunchError.h"

// The installer's own failures, as LaunchError values of the installer domain whose code is the
// case. The factories below are what the installer throws; Case is what callers test with
// error.is(LaunchContentPackInstallerError::Case::...).
class LaunchContentPackInstallerError {
public:
    enum class Case {
        missingIntegrity, // %1: the asset
        integrityFailure, // %1: the asset
        rejected,         // %1: the HTTP status
        packUnavailable,
        // A pack id, pack version or asset id that would lead a file out of its folder.
        unusableName,
    };

    static LaunchError missingIntegrity(const QString& assetName);
    static LaunchError integrityFailure(const QString& assetName);
    static LaunchError rejected(int httpStatus);
    static LaunchError packUnavailable();
    static LaunchError unusableName();
};

constexpr LaunchError::Domain errorDomain(LaunchContentPackInstallerError::Case) {
    return LaunchError::Domain::installer;
}
QString errorDescription(LaunchContentPackInstallerError::Case error);
