#pragma once

#include "foundation/InstalledApp.h"
#include "store/KeyedListModel.h"

// The store's applications for the views, one row each; the role "app" is the record.
class ApplicationListModel : public KeyedListModel {
    Q_OBJECT

public:
    enum Role { AppRole = Qt::UserRole + 1 };

    using KeyedListModel::KeyedListModel;

    void setApps(const QList<InstalledApp>& apps) { replaceRows(m_apps, apps); }
    const QList<InstalledApp>& apps() const { return m_apps; }

    int count() const override { return int(m_apps.size()); }
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override { return {{AppRole, "app"}}; }

private:
    QList<InstalledApp> m_apps;
};
