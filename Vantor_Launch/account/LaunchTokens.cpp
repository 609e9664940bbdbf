#include "account/LaunchTokens.h"

#include "foundation/LaunchError.h"
#include "foundation/ReferenceDate.h"
#include "foundation/StrictJson.h"

using namespace Qt::StringLiterals;

namespace {

// A session is a few hundred bytes; anything far larger is not ours.
constexpr qsizetype maximumEncodedSize = 64 * 1024;

} // namespace

QByteArray LaunchTokens::encoded() const {
    const nlohmann::json object = {
        {"accessToken", accessToken.toStdString()},
        {"refreshToken", refreshToken.toStdString()},
        {"expiresAt", ReferenceDate::secondsFromDate(expiresAt)},
    };
    return QByteArray::fromStdString(object.dump());
}

LaunchTokens LaunchTokens::decode(const QByteArray& document) {
    if (document.size() > maximumEncodedSize)
        throw LaunchError::decoding(u"The stored session is too large."_s);
    const JsonObject object = JsonObject::parse(document);
    LaunchTokens tokens;
    tokens.accessToken = object.requiredString("accessToken");
    tokens.refreshToken = object.requiredString("refreshToken");
    const auto expiresAt = ReferenceDate::dateFromSeconds(object.requiredNumber("expiresAt"));
    if (!expiresAt)
        throw LaunchError::decoding(u"The stored session's expiresAt is not a date."_s);
    tokens.expiresAt = *expiresAt;
    return tokens;
}
