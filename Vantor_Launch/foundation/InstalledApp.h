#pragma once

#include "foundation/DomainEnums.h"

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QUrl>
#include <optional>

// One managed application as the launcher last saw it. Rebuilt at every start; never stored.
struct InstalledApp {
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id CONSTANT)
    Q_PROPERTY(QString name MEMBER name CONSTANT)
    Q_PROPERTY(QString bundleIdentifier MEMBER bundleIdentifier CONSTANT)
    Q_PROPERTY(QString logoAsset MEMBER logoAsset CONSTANT)
    Q_PROPERTY(bool isInstalled READ isInstalled CONSTANT)
    Q_PROPERTY(QString pathText READ pathText CONSTANT)
    Q_PROPERTY(QString installedVersionText READ installedVersionText CONSTANT)
    Q_PROPERTY(QString buildText READ buildText CONSTANT)
    Q_PROPERTY(QString availableVersionText READ availableVersionText CONSTANT)
    Q_PROPERTY(Launch::InstallationState state MEMBER state CONSTANT)
    Q_PROPERTY(QString stateText READ stateText CONSTANT)
    Q_PROPERTY(bool isRunning MEMBER isRunning CONSTANT)
    Q_PROPERTY(QDateTime lastCheckedDate READ lastCheckedDate CONSTANT)

public:
    QString id;
    QString name;
    QString bundleIdentifier;
    QString logoAsset;
    std::optional<QUrl> path;
    std::optional<QString> installedVersion;
    std::optional<QString> build;
    std::optional<QString> availableVersion;
    Launch::InstallationState state = Launch::InstallationState::notInstalled;
    bool isRunning = false;
    std::optional<QDateTime> lastChecked;

    bool isInstalled() const { return path.has_value(); }
    QString pathText() const { return path ? path->toLocalFile() : QString(); }
    QString installedVersionText() const { return installedVersion.value_or(QString()); }
    QString buildText() const { return build.value_or(QString()); }
    QString availableVersionText() const { return availableVersion.value_or(QString()); }
    QString stateText() const { return Launch::text(state); }
    QDateTime lastCheckedDate() const { return lastChecked.value_or(QDateTime()); }

    friend bool operator==(const InstalledApp&, const InstalledApp&) = default;
};

Q_DECLARE_METATYPE(InstalledApp)
