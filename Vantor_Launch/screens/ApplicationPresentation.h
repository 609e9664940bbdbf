#pragma once

#include "core/InstalledApp.h"

#include <QColor>
#include <QObject>
#include <QtQmlIntegration>

// How an application's row in the sidebar shows whether it is installed.
class ApplicationPresentation : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    using QObject::QObject;

    static QString sidebarSymbolFor(const InstalledApp& app);
    static QColor sidebarColorFor(const InstalledApp& app);
    static QString sidebarAccessibleNameFor(const InstalledApp& app);

    Q_INVOKABLE QString sidebarSymbol(const InstalledApp& app) const {
        return sidebarSymbolFor(app);
    }
    Q_INVOKABLE QColor sidebarColor(const InstalledApp& app) const { return sidebarColorFor(app); }
    Q_INVOKABLE QString sidebarAccessibleName(const InstalledApp& app) const {
        return sidebarAccessibleNameFor(app);
    }
};
