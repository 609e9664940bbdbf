#include "StoreDoubles.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using Launch::PackInstallation;

namespace {

QStringList idsIn(const ContentPackListModel& model) {
    QStringList ids;
    for (int row = 0; row < model.rowCount(); ++row)
        ids.append(
            model.data(model.index(row), ContentPackListModel::PackRole).value<ContentPack>().id);
    return ids;
}

} // namespace

// The pack list as the views read it, where a change reaches the views as the rows it touches,
// never as a reset that would rebuild every delegate; and a transfer's progress as they show it.
class StoreModelsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aNewListSignalsOnlyTheRowsThatChanged() {
        ContentPackListModel model;
        model.setPacks(
            {makePack(u"a"_s, u"A"_s), makePack(u"b"_s, u"B"_s), makePack(u"c"_s, u"C"_s)});
        QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
        QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
        QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
        QSignalSpy moved(&model, &QAbstractItemModel::rowsMoved);
        QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);

        model.setPacks({makePack(u"a"_s, u"A"_s),
                        makePack(u"b"_s, u"B"_s, {}, std::nullopt, PackInstallation::installed),
                        makePack(u"c"_s, u"C"_s)});
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed[0][0].toModelIndex().row(), 1);

        model.setPacks(
            {makePack(u"d"_s, u"D"_s), makePack(u"c"_s, u"C"_s), makePack(u"a"_s, u"A"_s)});
        QCOMPARE(idsIn(model), QStringList({u"d"_s, u"c"_s, u"a"_s}));
        QCOMPARE(removed.size(), 1);
        QCOMPARE(inserted.size(), 1);
        QCOMPARE(moved.size(), 1);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(resets.size(), 0);
    }

    // Speed is smoothed over half-second windows and the time left follows from it; the views
    // hear of it a few times a second at most, and always of the last byte.
    void transferSmoothsItsSpeedAndLimitsItsRedraws() {
        qint64 clock = 0;
        Transfer transfer(nullptr, [&clock] { return clock; });
        QSignalSpy redraws(&transfer, &Transfer::progressChanged);
        const TransferControl control = transfer.control();
        const auto at = [&](qint64 milliseconds, qint64 received) {
            clock = milliseconds;
            control.progress(received, 10'000);
        };
        at(0, 0);
        at(100, 100);
        QCOMPARE(redraws.size(), 1);
        QCOMPARE(transfer.secondsRemaining(), -1);
        at(500, 2'000);
        QCOMPARE(transfer.bytesPerSecond(), 4'000.0);
        QCOMPARE(transfer.secondsRemaining(), 2);
        at(1'000, 2'500);
        QCOMPARE(transfer.bytesPerSecond(), 0.3 * 1'000 + 0.7 * 4'000);
        at(1'010, 10'000);
        QCOMPARE(redraws.size(), 4);
        QCOMPARE(transfer.fraction(), 1.0);

        transfer.cancel();
        QVERIFY(control.isCancelled());
        QVERIFY(!transfer.cancellable());
    }
};

QTEST_MAIN(StoreModelsTest)
#include "StoreModelsTest.moc"
