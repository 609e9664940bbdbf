#include "StoreDoubles.h"

#include <QSignalSpy>
#include <QTest>
#include <stdexcept>

using namespace Qt::StringLiterals;
using Launch::PackInstallation;

namespace {

const WebsiteAccount customer{u"cust-42"_s, u"Ana Example"_s, u"ana@example.com"_s};
const QString unexpectedFailure = u"Vantor Launcher could not complete the operation."_s;

QStringList idsIn(const ContentPackListModel& model) {
    QStringList ids;
    for (int row = 0; row < model.rowCount(); ++row)
        ids.append(
            model.data(model.index(row), ContentPackListModel::PackRole).value<ContentPack>().id);
    return ids;
}

} // namespace

// Refreshing, installing and handing packs over to Vantor Director; the pack list as the views read
// it, where a change reaches them as the rows it touches, and a transfer's progress as they show
// it.
class PackFlowsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<StoreFixture> m_fixture;
    std::unique_ptr<LaunchStore> m_store;

    // Director 2.4.1 of this build (none when null) is installed.
    void startStore(bool signedIn, const QString& directorBuild = u"2410"_s) {
        m_fixture = std::make_unique<StoreFixture>();
        InstalledApp director = m_fixture->director(u"2.4.1"_s, directorBuild);
        if (directorBuild.isNull())
            director.build.reset();
        if (signedIn)
            m_fixture->snapshotCache->stored = LaunchAccountSnapshot{1, customer, m_fixture->clock};
        m_fixture->answerStartUp({director, m_fixture->creator()},
                                 {makePack(u"coast"_s, u"Coastal Memories"_s, {}, u"1.2"_s),
                                  makePack(u"nature"_s, u"Nature"_s)},
                                 customer);
        m_store = m_fixture->makeStore();
        QVERIFY(finishes(m_store->start()));
    }

    PackFlows& flows() { return m_store->packFlows(); }

private Q_SLOTS:
    void refreshRunsOnceAndReportsTheList() {
        startStore(true);
        m_fixture->catalogue->load.holdCalls();
        auto first = flows().refreshContentPacks();
        QVERIFY(flows().isRefreshingContentPacks());
        QVERIFY(finishes(flows().refreshContentPacks()));
        QCOMPARE(m_fixture->catalogue->load.pendingCount(), 1);

        // A catalogue failure is replaced by the summary when the account sync succeeded.
        m_fixture->catalogue->load.fail(LaunchError::url(LaunchError::timedOut));
        QVERIFY(finishes(first));
        QCOMPARE(m_store->message(), u"Content Pack list updated."_s);
        QVERIFY(!flows().isRefreshingContentPacks());
        QCOMPARE(m_store->packs().size(), 2);
    }

    void installRequiresAnAccount() {
        startStore(false);
        QVERIFY(finishes(flows().installPack(u"coast"_s)));
        QCOMPARE(m_store->message(), u"Sign in to install Content Packs owned by your account."_s);
        QCOMPARE(m_fixture->accountProvider->manifestCalls.callCount(), 0);
    }

    // Progress shows until the install ends, in the pack's own row only: the views never see a
    // reset that would rebuild every delegate. Only a finished install tells the Director; the
    // website's reason for a refusal reaches the user; a Cancel reaches the installer's download
    // and leaves the pack as it was.
    void installShowsProgressUntilItEnds_data() {
        QTest::addColumn<QString>("end");
        QTest::addColumn<QString>("message");
        QTest::newRow("installed")
            << u"installed"_s << u"Coastal Memories is installed and ready in Vantor Creator."_s;
        QTest::newRow("refused")
            << u"refused"_s
            << u"Content Pack installation is not yet available on the live Vantor API."_s;
        QTest::newRow("cancelled")
            << u"cancelled"_s
            << u"The installation of Coastal Memories was cancelled. Nothing was changed."_s;
    }

    void installShowsProgressUntilItEnds() {
        QFETCH(QString, end);
        QFETCH(QString, message);
        startStore(true);
        const PackInstallation before = m_store->packs()[0].installation;
        auto* model = m_store->property("packs").value<ContentPackListModel*>();
        const QModelIndex row = model->index(0);
        QSignalSpy resets(model, &QAbstractItemModel::modelReset);
        QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
        m_fixture->accountProvider->manifestCalls.answerWith(LaunchContentPackManifest{});
        m_fixture->installer->installCalls.holdCalls();
        auto task = flows().installPack(u"coast"_s);
        QCOMPARE(m_store->packs()[0].installation, PackInstallation::downloading);
        QVERIFY(QTest::qWaitFor([&] { return bool(m_fixture->installer->control.progress); }));
        m_fixture->installer->control.progress(10, 100);
        QVERIFY(flows().transfers().value(u"coast"_s));
        QCOMPARE(row.data(ContentPackListModel::ReceivedRole).toLongLong(), 10);
        QCOMPARE(row.data(ContentPackListModel::ExpectedRole).toLongLong(), 100);
        QVERIFY(!changed.isEmpty());
        QVERIFY(m_fixture->workspace->openedURLs.isEmpty());
        for (const QList<QVariant>& signal : changed)
            QCOMPARE(signal[0].toModelIndex().row(), 0);

        const bool installed = end == u"installed"_s;
        const auto& cancellation = m_fixture->installer->control.cancellation;
        if (installed) {
            m_fixture->installer->versions.answerWith(
                QHash<QString, QString>{{u"coast"_s, u"1.0"_s}});
            m_fixture->installer->installCalls.complete({});
        } else if (end == u"cancelled"_s) {
            flows().cancelInstall(u"coast"_s);
            QVERIFY(cancellation->isCancelled());
            m_fixture->installer->installCalls.fail(LaunchError::url(LaunchError::cancelled));
        } else {
            m_fixture->installer->installCalls.fail(
                LaunchError(LaunchError::Domain::websiteAPI, 404, message));
        }
        QVERIFY(finishes(task));
        QCOMPARE(cancellation->isCancelled(), end == u"cancelled"_s);
        QVERIFY(flows().transfers().isEmpty());
        QCOMPARE(row.data(ContentPackListModel::ReceivedRole).toLongLong(), 0);
        QCOMPARE(resets.size(), 0);
        QCOMPARE(m_store->packs()[0].installation, installed ? PackInstallation::updateAvailable
                                                   : end == u"refused"_s ? PackInstallation::failed
                                                                         : before);
        QCOMPARE(m_store->message(), message);
        QCOMPARE(m_fixture->workspace->openedURLs.size(), installed ? 1 : 0);
        if (installed)
            QCOMPARE(m_fixture->workspace->openedURLs[0].first,
                     QUrl(u"vantordirector://content-pack-installed"_s));
    }

    void installedVersionAgainstTheCatalogue_data() {
        QTest::addColumn<QString>("catalogue");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<int>("state");
        QTest::newRow("1.9 below 1.10")
            << u"1.10"_s << u"1.9"_s << int(PackInstallation::updateAvailable);
        QTest::newRow("2.0 equals 2.0.0")
            << u"2.0.0"_s << u"2.0"_s << int(PackInstallation::installed);
        QTest::newRow("unparsable installed")
            << u"1.0"_s << u"beta"_s << int(PackInstallation::installed);
        QTest::newRow("no catalogue version")
            << QString() << u"0.1"_s << int(PackInstallation::installed);
        QTest::newRow("not installed")
            << u"1.0"_s << QString() << int(PackInstallation::unavailable);
    }

    void installedVersionAgainstTheCatalogue() {
        QFETCH(QString, catalogue);
        QFETCH(QString, installed);
        QFETCH(int, state);
        m_fixture = std::make_unique<StoreFixture>();
        m_fixture->answerStartUp(
            {m_fixture->director(), m_fixture->creator()},
            {makePack(u"coast"_s, u"Coast"_s, {},
                      catalogue.isNull() ? std::nullopt : std::optional<QString>(catalogue))});
        if (!installed.isNull())
            m_fixture->installer->versions.answerWith(
                QHash<QString, QString>{{u"coast"_s, installed}});
        m_store = m_fixture->makeStore();
        QVERIFY(finishes(m_store->start()));
        QCOMPARE(int(m_store->packs()[0].installation), state);
    }

    void handsOverByDirectorBuild_data() {
        QTest::addColumn<QString>("build");
        QTest::addColumn<bool>("byURL");
        QTest::newRow("126 opens normally") << u"126"_s << false;
        QTest::newRow("127 hands over") << u"127"_s << true;
        QTest::newRow("no number hands over") << u"beta"_s << true;
        QTest::newRow("no build hands over") << QString() << true;
    }

    void handsOverByDirectorBuild() {
        QFETCH(QString, build);
        QFETCH(bool, byURL);
        startStore(false, build);
        QVERIFY(finishes(flows().openContentPackManagement()));
        if (byURL) {
            QCOMPARE(m_fixture->workspace->openedURLs.size(), 1);
            QCOMPARE(m_fixture->workspace->openedURLs[0].first,
                     QUrl(u"vantordirector://content-packs"_s));
            QCOMPARE(m_fixture->notifier->posted,
                     QStringList{u"nz.co.halvex.VantorDirector.OpenContentPackLibrary"_s});
        } else {
            QCOMPARE(m_fixture->workspace->opened.size(), 1);
            QVERIFY(m_fixture->notifier->posted.isEmpty());
            QCOMPARE(m_store->message(),
                     u"In Vantor Creator, choose Content Pack Management. Direct Content Pack "
                     u"handoff is available from build 127 onward."_s);
        }
    }

    // Production results that arrive after a switch to demo mode never touch the demo data.
    void lateResultsAfterADemoSwitchAreDropped_data() {
        QTest::addColumn<QString>("flow");
        QTest::newRow("installed versions") << u"versions"_s;
        QTest::newRow("manifest arrives") << u"manifest"_s;
        QTest::newRow("manifest fails") << u"manifest failure"_s;
        QTest::newRow("install fails") << u"install failure"_s;
        QTest::newRow("user refresh") << u"refresh"_s;
    }

    void lateResultsAfterADemoSwitchAreDropped() {
        QFETCH(QString, flow);
        startStore(true);
        m_fixture->installer->versions.holdCalls();
        if (flow == u"install failure"_s)
            m_fixture->accountProvider->manifestCalls.answerWith(LaunchContentPackManifest{});
        else
            m_fixture->accountProvider->manifestCalls.holdCalls();
        m_fixture->installer->installCalls.holdCalls();
        QCoro::Task<> task = flow == u"versions"_s  ? flows().refreshPackInstallations()
                             : flow == u"refresh"_s ? flows().refreshContentPacks()
                                                    : flows().installPack(u"coast"_s);

        m_store->setDemoEnabled(true);
        QVERIFY(finishes(m_store->start()));
        const QList<ContentPack> demoPacks = m_store->packs();
        QCOMPARE(demoPacks.last().installation, PackInstallation::installed);

        const LaunchError failure(LaunchError::Domain::installer, 1, u"The download failed."_s);
        if (flow == u"versions"_s || flow == u"refresh"_s) {
            // Nothing installed in production (a refresh re-reads twice: after the account
            // and after the catalogue).
            while (m_fixture->installer->versions.pendingCount() > 0)
                m_fixture->installer->versions.complete({});
        } else if (flow == u"manifest"_s) {
            m_fixture->accountProvider->manifestCalls.complete({});
        } else if (flow == u"manifest failure"_s) {
            m_fixture->accountProvider->manifestCalls.fail(failure);
        } else {
            m_fixture->installer->installCalls.fail(failure);
        }
        QVERIFY(finishes(task));
        QCOMPARE(m_store->packs(), demoPacks);
        QVERIFY(!m_store->message());
        QVERIFY(!flows().isRefreshingContentPacks());
        QVERIFY(m_fixture->workspace->openedURLs.isEmpty());
    }

    void unexpectedFailuresEndTheBusyStates() {
        startStore(true);
        m_fixture->accountProvider->manifestCalls.failWith(std::runtime_error("bad_alloc, say"));
        QVERIFY(finishes(flows().installPack(u"coast"_s)));
        QCOMPARE(m_store->packs()[0].installation, PackInstallation::failed);
        QCOMPARE(m_store->message(), unexpectedFailure);

        m_store->setMessage(std::nullopt);
        m_fixture->installer->versions.failWith(std::runtime_error("EIO"));
        m_store->requestRefreshContentPacks();
        QTRY_COMPARE(m_store->message(), unexpectedFailure);
        QVERIFY(!flows().isRefreshingContentPacks());
    }

    void demoModeChangesNothing() {
        StoreFixture fixture;
        auto store = fixture.makeStore();
        store->setDemoEnabled(true);
        QVERIFY(finishes(store->start()));
        QVERIFY(finishes(store->packFlows().refreshContentPacks()));
        QCOMPARE(store->message(), u"Demo mode did not refresh production Content Packs."_s);
        QVERIFY(finishes(store->packFlows().openContentPackManagement()));
        QCOMPARE(store->message(),
                 u"Demo mode did not open Vantor Creator or change installed content."_s);
        QVERIFY(finishes(store->packFlows().installPack(u"demo-nature-light"_s)));
        QCOMPARE(fixture.demoAccountProvider->manifestCalls.callCount(), 0);
        QVERIFY(fixture.workspace->openedURLs.isEmpty());
    }

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

QTEST_GUILESS_MAIN(PackFlowsTest)
#include "PackFlowsTest.moc"
