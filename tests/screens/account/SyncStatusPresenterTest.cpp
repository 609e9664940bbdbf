#include "SyncStatusPresenter.h"

#include "../ScreenTexts.h"
#include "SymbolTable.h"

#include <QTest>

using namespace Qt::StringLiterals;

// What the account's status line says for each sync state, character for character.
class SyncStatusPresenterTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        // Absolute dates are written in local time.
        qputenv("TZ", "UTC");
    }

    void describesEverySyncState_data() {
        QTest::addColumn<AccountSyncState>("state");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("caption");

        const QDateTime last = utc("2026-10-26T10:00:00Z");
        const QString when = u"Oct 26, 2026, 10:00 AM"_s;
        const QString cached = u"Showing cached account data — last synced "_s + when;
        const QString changed =
            u"The account changed. Sign out before signing in to another account."_s;
        QTest::newRow("synced") << AccountSyncState::synced(utc("2026-11-01T08:55:00Z"))
                                << u"Synced 5 minutes ago"_s << QString();
        QTest::newRow("stale") << AccountSyncState::stale(last)
                               << u"Cached — last synced "_s + when + u". Not refreshed yet."_s
                               << QString();
        QTest::newRow("offline") << AccountSyncState::offline(last)
                                 << u"Offline — last synced "_s + when << QString();
        QTest::newRow("expired without date") << AccountSyncState::sessionExpired(std::nullopt)
                                              << u"Website session expired"_s << QString();
        QTest::newRow("expired with date")
            << AccountSyncState::sessionExpired(last) << u"Website session expired"_s << cached;
        QTest::newRow("failed with date") << AccountSyncState::failed(changed, last)
                                          << u"Sync unavailable: "_s + changed << cached;
        QTest::newRow("failed without date")
            << AccountSyncState::failed(u"Offline."_s, std::nullopt)
            << u"Sync unavailable: Offline."_s << QString();
        QTest::newRow("signed out")
            << AccountSyncState::signedOut() << u"Signed out"_s << QString();
        QTest::newRow("signing in")
            << AccountSyncState::signingIn() << u"Signing in\u2026"_s << QString();
        QTest::newRow("syncing") << AccountSyncState::syncing() << u"Syncing\u2026"_s << QString();
    }

    void describesEverySyncState() {
        QFETCH(AccountSyncState, state);
        const auto description =
            SyncStatusPresenter::describe(state, utc("2026-11-01T09:00:00Z"), english);
        QTEST(description.text, "text");
        QTEST(description.caption, "caption");
        QVERIFY2(!SymbolTable::resourcePath(description.symbol).isEmpty(),
                 qPrintable(description.symbol));
    }
};

QTEST_GUILESS_MAIN(SyncStatusPresenterTest)
#include "SyncStatusPresenterTest.moc"
