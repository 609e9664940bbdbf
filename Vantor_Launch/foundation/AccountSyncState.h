#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <optional>

// Where the website account sync stands. Which payload a case carries is fixed by the case;
// the named constructors are the only way to build one.
struct AccountSyncState {
    Q_GADGET
    Q_PROPERTY(Kind kind MEMBER kind CONSTANT)
    Q_PROPERTY(bool hasDate READ hasDate CONSTANT)
    Q_PROPERTY(QDateTime dateValue READ dateValue CONSTANT)
    Q_PROPERTY(QString message MEMBER message CONSTANT)

public:
    enum class Kind {
        synced,
        stale,
        offline,
        sessionExpired,
        failed,
        signedOut,
        signingIn,
        syncing
    };
    Q_ENUM(Kind)

    Kind kind = Kind::signedOut;
    std::optional<QDateTime> date;
    QString message;

    static AccountSyncState synced(const QDateTime& at) { return {Kind::synced, at, {}}; }
    static AccountSyncState stale(const QDateTime& lastSync) { return {Kind::stale, lastSync, {}}; }
    static AccountSyncState offline(const QDateTime& lastSync) {
        return {Kind::offline, lastSync, {}};
    }
    static AccountSyncState sessionExpired(std::optional<QDateTime> lastSync) {
        return {Kind::sessionExpired, lastSync, {}};
    }
    static AccountSyncState failed(const QString& text, std::optional<QDateTime> lastSync) {
        return {Kind::failed, lastSync, text};
    }
    static AccountSyncState signedOut() { return {Kind::signedOut, std::nullopt, {}}; }
    static AccountSyncState signingIn() { return {Kind::signingIn, std::nullopt, {}}; }
    static AccountSyncState syncing() { return {Kind::syncing, std::nullopt, {}}; }

    bool hasDate() const { return date.has_value(); }
    QDateTime dateValue() const { return date.value_or(QDateTime()); }

    friend bool operator==(const AccountSyncState&, const AccountSyncState&) = default;
};

Q_DECLARE_METATYPE(AccountSyncState)
