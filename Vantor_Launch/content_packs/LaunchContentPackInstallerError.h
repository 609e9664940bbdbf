#pragma once

#include "foundation/LaunchError.h"

// The installer's own failures, as LaunchError values of the installer domain. The code tells the
// cases apart; a rejected download carries its HTTP status as its code.
class LaunchContentPackInstallerError {
public:
    enum Code {
        missingIntegrityCode = -1,
        integrityFailureCode = -2,
        packUnavailableCode = -3,
        unusableNameCode = -4,
    };

    static LaunchError missingIntegrity(const QString& assetName);
    static LaunchError integrityFailure(const QString& assetName);
    static LaunchError rejected(int httpStatus);
    static LaunchError packUnavailable();
    // A pack id, pack version or asset id that would lead a file out of its folder.
    static LaunchError unusableName();
};
