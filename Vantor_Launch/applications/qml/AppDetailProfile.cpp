#include "AppDetailProfile.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

using namespace Qt::StringLiterals;

namespace {

QStringList strings(const QJsonValue& value) {
    QStringList result;
    for (const QJsonValue& item : value.toArray())
        result.append(item.toString());
    return result;
}

QDate date(const QJsonValue& value) {
    return QDate::fromString(value.toString(), Qt::ISODate);
}

} // namespace

QVariantList AppDetailProfile::featuresForView() const {
    QVariantList result;
    for (const AppDetailFeature& feature : features) {
        result.append(QVariantMap{{u"number"_s, feature.number},
                                  {u"title"_s, feature.title},
                                  {u"detail"_s, feature.detail}});
    }
    return result;
}

QVariantList AppDetailProfile::changelogForView() const {
    QVariantList result;
    for (const AppDetailRelease& release : changelog) {
        result.append(QVariantMap{{u"version"_s, release.version},
                                  {u"releasedText"_s, dateText(release.released)},
                                  {u"changes"_s, release.changes}});
    }
    return result;
}

QString AppDetailProfile::dateText(const QDate& date) {
    return QLocale().toString(date, u"MMMM d, yyyy"_s);
}

AppDetailProfile AppDetailProfile::fromResource(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    AppDetailProfile profile;
    profile.tagline = root.value(u"tagline"_s).toString();
    profile.screenshotNames = strings(root.value(u"screenshots"_s));
    int number = 0;
    for (const QJsonValue& item : root.value(u"features"_s).toArray()) {
        const QJsonObject feature = item.toObject();
        profile.features.append({++number, feature.value(u"title"_s).toString(),
                                 feature.value(u"detail"_s).toString()});
    }
    const QJsonObject release = root.value(u"release"_s).toObject();
    profile.releaseVersion = release.value(u"version"_s).toString();
    profile.releaseDate = date(release.value(u"date"_s));
    profile.recentChanges = strings(release.value(u"changes"_s));
    for (const QJsonValue& item : root.value(u"changelog"_s).toArray()) {
        const QJsonObject entry = item.toObject();
        profile.changelog.append({entry.value(u"version"_s).toString(),
                                  date(entry.value(u"date"_s)),
                                  strings(entry.value(u"changes"_s))});
    }
    return profile;
}

const AppDetailProfile& AppDetailProfiles::director() {
    static const AppDetailProfile profile =
        AppDetailProfile::fromResource(u":/Vantor/Launch/profiles/VantorDirector.json"_s);
    return profile;
}

const AppDetailProfile& AppDetailProfiles::creator() {
    static const AppDetailProfile profile =
        AppDetailProfile::fromResource(u":/Vantor/Launch/profiles/VantorCreator.json"_s);
    return profile;
}
