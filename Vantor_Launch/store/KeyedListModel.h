#pragma once

#include <QAbstractListModel>

// A list model over records that carry an `id`: taking a new list signals only the rows that went,
// came, moved or changed, so that the views keep their delegates, focus and scroll position.
class KeyedListModel : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(int count READ count NOTIFY countChanged)

public:
    using QAbstractListModel::QAbstractListModel;

    virtual int count() const = 0;
    int rowCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : count();
    }

Q_SIGNALS:
    void countChanged();

protected:
    template <typename T>
    void replaceRows(QList<T>& rows, const QList<T>& next);
};

template <typename T>
void KeyedListModel::replaceRows(QList<T>& rows, const QList<T>& next) {
    const qsizetype countBefore = rows.size();
    const auto listedIn = [](const QList<T>& list, const QString& id) {
        return std::any_of(list.begin(), list.end(), [&](const T& row) { return row.id == id; });
    };
    for (qsizetype row = rows.size() - 1; row >= 0; --row) {
        if (!listedIn(next, rows[row].id)) {
            beginRemoveRows({}, int(row), int(row));
            rows.removeAt(row);
            endRemoveRows();
        }
    }
    for (qsizetype row = 0; row < next.size(); ++row) {
        qsizetype found = -1;
        for (qsizetype later = row; later < rows.size() && found < 0; ++later) {
            if (rows[later].id == next[row].id)
                found = later;
        }
        if (found < 0) {
            beginInsertRows({}, int(row), int(row));
            rows.insert(row, next[row]);
            endInsertRows();
            continue;
        }
        if (found != row) {
            beginMoveRows({}, int(found), int(found), {}, int(row));
            rows.move(found, row);
            endMoveRows();
        }
        if (!(rows[row] == next[row])) {
            rows[row] = next[row];
            Q_EMIT dataChanged(index(int(row)), index(int(row)));
        }
    }
    // Duplicated ids that the new list has fewer of.
    if (rows.size() > next.size()) {
        beginRemoveRows({}, int(next.size()), int(rows.size() - 1));
        rows.resize(next.size());
        endRemoveRows();
    }
    if (rows.size() != countBefore)
        Q_EMIT countChanged();
}
