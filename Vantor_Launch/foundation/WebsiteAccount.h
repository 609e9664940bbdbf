#pragma once

#include <QMetaType>
#include <QString>

// The signed-in website account. Carries no tokens.
struct WebsiteAccount {
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id CONSTANT)
    Q_PROPERTY(QString displayName MEMBER displayName CONSTANT)
    Q_PROPERTY(QString email MEMBER email CONSTANT)

public:
    QString id;
    QString displayName;
    QString email;

    friend bool operator==(const WebsiteAccount&, const WebsiteAccount&) = default;
};

Q_DECLARE_METATYPE(WebsiteAccount)
