#pragma once

#include "foundation/DomainEnums.h"

#include <QMetaType>
#include <QString>
#include <QUrl>
#include <optional>

// A Content Pack as shown to the user: a catalogue entry with its installed state.
struct ContentPack {
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id CONSTANT)
    Q_PROPERTY(QString name MEMBER name CONSTANT)
    Q_PROPERTY(QString summary MEMBER summary CONSTANT)
    Q_PROPERTY(QString detail MEMBER detail CONSTANT)
    Q_PROPERTY(bool hasContentCount READ hasContentCount CONSTANT)
    Q_PROPERTY(qint64 contentCountValue READ contentCountValue CONSTANT)
    Q_PROPERTY(QString versionText READ versionText CONSTANT)
    Q_PROPERTY(QString downloadSizeText READ downloadSizeText CONSTANT)
    Q_PROPERTY(QUrl artwork READ artwork CONSTANT)
    Q_PROPERTY(Launch::PackInstallation installation MEMBER installation CONSTANT)
    Q_PROPERTY(QString installationText READ installationText CONSTANT)
    Q_PROPERTY(bool requiresCreator MEMBER requiresCreator CONSTANT)

public:
    QString id;
    QString name;
    QString summary;
    QString detail;
    std::optional<qint64> contentCount;
    std::optional<QString> version;
    std::optional<QString> downloadSize;
    std::optional<QUrl> artworkURL;
    Launch::PackInstallation installation = Launch::PackInstallation::notInstalled;
    bool requiresCreator = false;

    bool hasContentCount() const { return contentCount.has_value(); }
    qint64 contentCountValue() const { return contentCount.value_or(0); }
    QString versionText() const { return version.value_or(QString()); }
    QString downloadSizeText() const { return downloadSize.value_or(QString()); }
    QUrl artwork() const { return artworkURL.value_or(QUrl()); }
    QString installationText() const { return Launch::text(installation); }

    friend bool operator==(const ContentPack&, const ContentPack&) = default;
};

Q_DECLARE_METATYPE(ContentPack)
