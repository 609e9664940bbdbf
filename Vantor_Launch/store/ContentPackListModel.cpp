#include "store/ContentPackListModel.h"

using namespace Qt::StringLiterals;

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

void ContentPackListModel::setProgress(const QVariantMap& progress) {
    const QVariantMap before = std::exchange(m_progress, progress);
    for (int row = 0; row < count(); ++row) {
        const QString& id = m_packs.at(row).id;
        if (before.value(id) != m_progress.value(id))
            Q_EMIT dataChanged(index(row), index(row), {ReceivedRole, ExpectedRole});
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
    case ReceivedRole:
        return m_progress.value(pack.id).toMap().value(u"received"_s, 0).toLongLong();
    case ExpectedRole:
        return m_progress.value(pack.id).toMap().value(u"expected"_s, 0).toLongLong();
    default:
        return {};
    }
}

QHash<int, QByteArray> ContentPackListModel::roleNames() const {
    return {{PackRole, "pack"}, {ReceivedRole, "received"}, {ExpectedRole, "expected"}};
}
