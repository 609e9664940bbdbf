#pragma once

#include <QMetaType>
#include <QString>
#include <QUrl>
#include <optional>

// The newest published release of Vantor Director, as the release manifest states it.
struct AvailableApplicationRelease {
    Q_GADGET
    Q_PROPERTY(QString version MEMBER version CONSTANT)
    Q_PROPERTY(QString buildText READ buildText CONSTANT)

public:
    QString version;
    std::optional<QString> build; // written in decimal
    std::optional<QUrl> downloadURL;

    QString buildText() const { return build.value_or(QString()); }

    friend bool operator==(const AvailableApplicationRelease&,
                           const AvailableApplicationRelease&) = default;
};

Q_DECLARE_METATYPE(AvailableApplicationRelease)
