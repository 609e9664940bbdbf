#pragma once

#include "BundleSigning.h"
#include "TestCertificateAuthority.h"

#include <QUrl>

// A throwaway developer programme: one authority, two teams with code-signing certificates, and
// certificates that may not sign code.
class SigningFixture {
public:
    static inline const QString teamA = QStringLiteral("TEAMA11111");
    static inline const QString teamB = QStringLiteral("TEAMB22222");

    TestCertificateAuthority authority{QStringLiteral("Vantor Test Developer Root")};
    TestCertificateAuthority::Issued developerA = authority.issue(
        {QStringLiteral("Developer ID Application: Halvex (A)"), teamA, {}, false, true});
    TestCertificateAuthority::Issued developerB = authority.issue(
        {QStringLiteral("Developer ID Application: Other (B)"), teamB, {}, false, true});
    TestCertificateAuthority::Issued notForCode =
        authority.issue({QStringLiteral("Web server"), teamA, {}, true, false});
    // No extended key usage at all, which some tools read as "good for anything".
    TestCertificateAuthority::Issued noUsage =
        authority.issue({QStringLiteral("Developer without usages"), teamA, {}, false, false});

    static void sign(const QUrl& bundle, const QString& identifier,
                     const TestCertificateAuthority::Issued& signer) {
        signBundle(bundle.toLocalFile(), identifier,
                   {signer.certificatePem(), signer.keyPem(), {}});
    }
};
