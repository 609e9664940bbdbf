#include "store/ContentPackListModel.h"

#include "store/Transfer.h"

void ContentPackListModel::setPacks(const QList<ContentPack>& packs) {
    replaceRows(m_packs, packs);
    noteSelectedRow();
}

void ContentPackListModel::setPacksInPlace(const QList<ContentPack>& packs) {
    if (packs.size() != m_packs.size())
        return setPacks(packs);
    for (int row = 0; row < count(); ++row) {
        if (!(m_packs[row] == packs[row])) {
            m_packs[row] = packs[row];
            Q_EMIT dataChanged(index(row), index(row));
        }
    }
    noteSelectedRow();
}

void ContentPackListModel::setTransfers(const QHash<QString, QPointer<Transfer>>& transfers) {
    for (const auto& connection : std::as_const(m_transferConnections))
        disconnect(connection);
    m_transferConnections.clear();
    const auto before = std::exchange(m_transfers, transfers);
    for (auto it = m_transfers.cbegin(); it != m_transfers.cend(); ++it) {
        if (!it.value())
            continue;
        // The transfer itself notifies a few times a second at most.
        m_transferConnections.append(
            connect(it.value(), &Transfer::progressChanged, this, [this, id = it.key()] {
                transferRowChanged(id, {ReceivedRole, ExpectedRole});
            }));
    }
    for (const ContentPack& pack : std::as_const(m_packs)) {
        if (before.value(pack.id) != m_transfers.value(pack.id))
            transferRowChanged(pack.id, {TransferRole, ReceivedRole, ExpectedRole});
    }
}

void ContentPackListModel::transferRowChanged(const QString& packID, const QList<int>& roles) {
    for (int row = 0; row < count(); ++row) {
        if (m_packs.at(row).id == packID)
            Q_EMIT dataChanged(index(row), index(row), roles);
    }
}

void ContentPackListModel::setSelectedID(const QString& packID) {
    m_selectedID = packID;
    noteSelectedRow();
}

int ContentPackListModel::selectedRow() const {
    for (int row = 0; row < count(); ++row) {
        if (m_packs.at(row).id == m_selectedID)
            return row;
    }
    return -1;
}

void ContentPackListModel::noteSelectedRow() {
    if (const int row = selectedRow(); row != m_lastSelectedRow) {
        m_lastSelectedRow = row;
        Q_EMIT selectedRowChanged();
    }
}

QVariant ContentPackListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const ContentPack& pack = m_packs.at(index.row());
    switch (role) {
    case PackRole:
        return QVariant::fromValue(pack);
    case TransferRole:
        return QVariant::fromValue(static_cast<QObject*>(m_transfers.value(pack.id).data()));
    case ReceivedRole: {
        const Transfer* transfer = m_transfers.value(pack.id);
        return transfer ? transfer->receivedBytes() : 0;
    }
    case ExpectedRole: {
        const Transfer* transfer = m_transfers.value(pack.id);
        return transfer ? std::max<qint64>(transfer->expectedBytes(), 0) : 0;
    }
    default:
        return {};
    }
}

QHash<int, QByteArray> ContentPackListModel::roleNames() const {
    return {{PackRole, "pack"},
            {TransferRole, "transfer"},
            {ReceivedRole, "received"},
            {ExpectedRole, "expected"}};
}
