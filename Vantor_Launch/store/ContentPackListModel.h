#pragma once

#include "foundation/ContentPack.h"
#include "store/KeyedListModel.h"
#include "store/Transfer.h"

#include <QHash>
#include <QPointer>

// Content Packs for the views, one row each: the role "pack" is the record, "transfer" its
// running installation (null otherwise), "received" and "expected" that transfer's bytes (0
// otherwise; an unknown size is 0).
// "selectedRow" is the row of the store's selected pack, -1 when it is not listed.
class ContentPackListModel : public KeyedListModel {
    Q_OBJECT
    Q_PROPERTY(int selectedRow READ selectedRow NOTIFY selectedRowChanged)

public:
    enum Role { PackRole = Qt::UserRole + 1, TransferRole, ReceivedRole, ExpectedRole };

    using KeyedListModel::KeyedListModel;

    void setPacks(const QList<ContentPack>& packs);
    // Rows matched by position, not by pack: a list of the same length changes its rows in place,
    // so that a view of the one selected pack stays the same view when another is selected.
    void setPacksInPlace(const QList<ContentPack>& packs);
    // The running installations, by pack id.
    void setTransfers(const QHash<QString, QPointer<Transfer>>& transfers);
    void setSelectedID(const QString& packID);
    const QList<ContentPack>& packs() const { return m_packs; }
    int selectedRow() const;

    int count() const override { return int(m_packs.size()); }
    QVariant data(const QModelIndex& index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void selectedRowChanged();

private:
    void noteSelectedRow();
    void transferRowChanged(const QString& packID, const QList<int>& roles);

    QList<ContentPack> m_packs;
    QHash<QString, QPointer<Transfer>> m_transfers;
    QList<QMetaObject::Connection> m_transferConnections;
    QString m_selectedID;
    int m_lastSelectedRow = -1;
};
