#include "store/ApplicationListModel.h"

QVariant ApplicationListModel::data(const QModelIndex& index, int role) const {
    if (!checkIndex(index, CheckIndexOption::IndexIsValid) || role != AppRole)
        return {};
    return QVariant::fromValue(m_apps.at(index.row()));
}
