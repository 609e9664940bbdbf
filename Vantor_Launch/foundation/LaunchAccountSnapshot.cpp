#include "foundation/LaunchAccountSnapshot.h"

#include "foundation/LaunchError.h"
#include "foundation/ReferenceDate.h"
#include "foundation/StrictJson.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

LaunchError LaunchAccountSnapshot::invalidSnapshotError() {
    return LaunchError(LaunchError::Domain::snapshot, 0,
                       QCoreApplication::translate(
                           "LaunchAccountSnapshot",
                           "The operation couldn’t be completed. (AccountSnapshotError error 0.)"));
}

const LaunchAccountSnapshot& LaunchAccountSnapshot::validated() const {
    if (!isValid())
        throw invalidSnapshotError();
    return *this;
}

QByteArray LaunchAccountSnapshot::encoded() const {
    const nlohmann::json object = {
        {"schemaVersion", schemaVersion},
        {"account",
         {
             {"id", account.id.toStdString()},
             {"displayName", account.displayName.toStdString()},
             {"email", account.email.toStdString()},
         }},
        {"lastSuccessfulSync", ReferenceDate::secondsFromDate(lastSuccessfulSync)},
    };
    return QByteArray::fromStdString(object.dump());
}

LaunchAccountSnapshot LaunchAccountSnapshot::decode(const QByteArray& document) {
    const JsonObject object = JsonObject::parse(document);
    LaunchAccountSnapshot snapshot;
    snapshot.schemaVersion = object.requiredInteger("schemaVersion");
    const JsonObject account = object.requiredObject("account");
    snapshot.account =
        WebsiteAccount{account.requiredString("id"), account.requiredString("displayName"),
                       account.requiredString("email")};
    const auto date = ReferenceDate::dateFromSeconds(object.requiredNumber("lastSuccessfulSync"));
    if (!date)
        throw LaunchError::decoding(u"The snapshot's lastSuccessfulSync is not a date."_s);
    snapshot.lastSuccessfulSync = *date;
    return snapshot;
}
