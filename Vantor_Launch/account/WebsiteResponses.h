#pragma once

#include "foundation/LaunchContentPackManifest.h"
#include "foundation/WebsiteAccount.h"

#include <QByteArray>

// The JSON bodies of the website account API, decoded strictly: each function throws a decoding
// LaunchError for a body of the wrong shape.
namespace WebsiteResponses {

struct TokenResponse {
    QString accessToken;
    QString refreshToken;
    qint64 expiresIn = 0;
};

TokenResponse decodeTokenResponse(const QByteArray& body);
// "customerID", "displayName" and the optional "email" (empty when absent).
WebsiteAccount decodeAccountResponse(const QByteArray& body);
// The sign-out answer: JSON null, or an object whose "ok" is a boolean.
void decodeSignOutResponse(const QByteArray& body);
LaunchContentPackManifest decodeContentPackManifest(const QByteArray& body);

} // namespace WebsiteResponses
