#pragma once

#include "store/LaunchStore.h"

#include <QObject>
#include <QPointer>
#include <QStringList>
#include <QUrl>
#include <QtQmlIntegration>

// What the tray menu shows for the store: the update line, the running transfers, which
// applications can be opened, and the tray's own icon.
class MenuBarPanelModel : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(LaunchStore* store READ store WRITE setStore NOTIFY storeChanged)
    Q_PROPERTY(bool hasUpdates READ hasUpdates NOTIFY changed)
    Q_PROPERTY(QString updatesText READ updatesText NOTIFY changed)
    Q_PROPERTY(bool canOpenDirector READ canOpenDirector NOTIFY changed)
    Q_PROPERTY(bool canOpenCreator READ canOpenCreator NOTIFY changed)
    // One line per running transfer, Director's update first, then the packs in the catalogue's
    // order. The count changes only when one starts or ends, so that the menu keeps its items
    // while their texts follow the progress.
    Q_PROPERTY(QStringList transferLines READ transferLines NOTIFY transferLinesChanged)
    Q_PROPERTY(int transferCount READ transferCount NOTIFY transferCountChanged)
    Q_PROPERTY(QString iconName READ iconName NOTIFY changed)
    Q_PROPERTY(QUrl iconSource READ iconSource NOTIFY changed)

public:
    explicit MenuBarPanelModel(QObject* parent = nullptr);

    LaunchStore* store() const { return m_store; }
    void setStore(LaunchStore* store);

    bool hasUpdates() const;
    QString updatesText() const;
    bool canOpenDirector() const;
    bool canOpenCreator() const;
    QStringList transferLines() const;
    int transferCount() const { return m_transferCount; }
    QString iconName() const;
    QUrl iconSource() const;

    Q_INVOKABLE void openDirector();
    Q_INVOKABLE void openCreator();

Q_SIGNALS:
    void storeChanged();
    void changed();
    void transferLinesChanged();
    void transferCountChanged();

private:
    std::optional<InstalledApp> appNamed(const QString& name) const;
    void openAppNamed(const QString& name);
    QList<QPointer<Transfer>> runningTransfers() const;
    void followTransfers();
    void noteTransfers();

    QPointer<LaunchStore> m_store;
    QList<QMetaObject::Connection> m_connections;
    QList<QMetaObject::Connection> m_transferConnections;
    int m_transferCount = 0;
};
