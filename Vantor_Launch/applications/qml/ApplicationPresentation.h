#pragma once

#include "ApplicationRowDescription.h"
#include "foundation/AvailableApplicationRelease.h"
#include "foundation/InstalledApp.h"

#include <QColor>
#include <QDateTime>
#include <QObject>
#include <QtQmlIntegration>

// How the screens show managed applications: the sidebar's installed mark, the overview's rows
// and when the applications were last checked.
class ApplicationPresentation : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    static QString sidebarSymbolFor(const InstalledApp& app);
    static QColor sidebarColorFor(const InstalledApp& app);
    static QString sidebarAccessibleNameFor(const InstalledApp& app);

    // `creatorName` is the configured name of Vantor Creator, whose row is built into the
    // Director's; `release` is the newest published release of the Director, if known.
    static ApplicationRowDescription
    describeRow(const InstalledApp& app, const QString& creatorName,
                const std::optional<AvailableApplicationRelease>& release = std::nullopt);
    static QString statusTextFor(const InstalledApp& app, const QString& creatorName);
    static QString stateSymbolFor(Launch::InstallationState state);
    static QColor stateColorFor(Launch::InstallationState state);
    // "Last checked " and the most recent check among the applications, relative to `now`.
    static QString lastCheckedText(const QList<InstalledApp>& apps, const QDateTime& now);

    Q_INVOKABLE QString sidebarSymbol(const InstalledApp& app) const {
        return sidebarSymbolFor(app);
    }
    Q_INVOKABLE QColor sidebarColor(const InstalledApp& app) const { return sidebarColorFor(app); }
    Q_INVOKABLE QString sidebarAccessibleName(const InstalledApp& app) const {
        return sidebarAccessibleNameFor(app);
    }
    // `release` is the store's availableDirectorRelease, so that the row follows it.
    Q_INVOKABLE ApplicationRowDescription row(const InstalledApp& app, const QString& creatorName,
                                              const QVariant& release) const;
};
