#pragma once

#include <QDate>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QtQmlIntegration>

struct AppDetailFeature {
    int number = 0;
    QString title;
    QString detail;
};

struct AppDetailRelease {
    QString version;
    QDate released;
    QStringList changes;
};

// The store page of one managed application: product copy shipped in the launcher's resources
// (resources/profiles), one profile for Vantor Director and one for Vantor Creator.
struct AppDetailProfile {
    Q_GADGET
    QML_VALUE_TYPE(appDetailProfile)
    Q_PROPERTY(QString tagline MEMBER tagline CONSTANT)
    Q_PROPERTY(QStringList screenshotNames MEMBER screenshotNames CONSTANT)
    Q_PROPERTY(QVariantList features READ featuresForView CONSTANT)
    Q_PROPERTY(QString releaseVersion MEMBER releaseVersion CONSTANT)
    Q_PROPERTY(QString releaseDateText READ releaseDateText CONSTANT)
    Q_PROPERTY(QStringList recentChanges MEMBER recentChanges CONSTANT)
    Q_PROPERTY(QVariantList changelog READ changelogForView CONSTANT)

public:
    QString tagline;
    QStringList screenshotNames;
    QList<AppDetailFeature> features;
    QString releaseVersion;
    QDate releaseDate;
    QStringList recentChanges;
    QList<AppDetailRelease> changelog; // newest first

    // Features as maps with "number", "title" and "detail"; releases with "version",
    // "releasedText" and "changes".
    QVariantList featuresForView() const;
    QVariantList changelogForView() const;
    QString releaseDateText() const { return dateText(releaseDate); }

    static QString dateText(const QDate& date);
    // The profile in a resource file; an empty profile when the file is missing or malformed.
    static AppDetailProfile fromResource(const QString& path);
};

Q_DECLARE_METATYPE(AppDetailProfile)

// Picks the profile of an application: Creator's when the name is the configured creator name,
// otherwise the Director's.
class AppDetailProfiles : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    static const AppDetailProfile& director();
    static const AppDetailProfile& creator();
    static const AppDetailProfile& profileFor(const QString& appName, const QString& creatorName) {
        return appName == creatorName ? creator() : director();
    }

    Q_INVOKABLE AppDetailProfile profile(const QString& appName, const QString& creatorName) const {
        return profileFor(appName, creatorName);
    }
};
