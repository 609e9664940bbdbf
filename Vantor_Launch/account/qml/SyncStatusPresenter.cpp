#include "SyncStatusPresenter.h"

#include "screens/controls/DateTexts.h"
#include "screens/controls/UiPalette.h"

using namespace Qt::StringLiterals;
using Kind = AccountSyncState::Kind;

SyncStatusPresenter::Description SyncStatusPresenter::describe(const AccountSyncState& state,
                                                               const QDateTime& now,
                                                               const QLocale& locale) {
    const auto when = [&] { return DateTexts::abbreviated(state.dateValue(), locale); };
    Description description;
    switch (state.kind) {
    case Kind::synced:
        description = {u"Synced "_s + DateTexts::relative(state.dateValue(), now),
                       u"checkmark.circle.fill"_s,
                       UiPalette::green(),
                       {}};
        break;
    case Kind::stale:
        description = {u"Cached — last synced "_s + when() + u". Not refreshed yet."_s,
                       u"clock.badge.exclamationmark"_s,
                       UiPalette::gold(),
                       {}};
        break;
    case Kind::offline:
        description = {
            u"Offline — last synced "_s + when(), u"wifi.slash"_s, UiPalette::gold(), {}};
        break;
    case Kind::sessionExpired:
        description = {u"Website session expired"_s,
                       u"person.crop.circle.badge.exclamationmark"_s,
                       UiPalette::gold(),
                       {}};
        break;
    case Kind::failed:
        description = {u"Sync unavailable: "_s + state.message,
                       u"exclamationmark.triangle.fill"_s,
                       UiPalette::orange(),
                       {}};
        break;
    case Kind::signedOut:
        description = {
            u"Signed out"_s, u"person.crop.circle.badge.xmark"_s, UiPalette::slate(), {}};
        break;
    case Kind::signingIn:
        description = {u"Signing in…"_s, u"hourglass"_s, UiPalette::teal(), {}};
        break;
    case Kind::syncing:
        description = {u"Syncing…"_s, u"arrow.triangle.2.circlepath"_s, UiPalette::teal(), {}};
        break;
    }
    if ((state.kind == Kind::sessionExpired || state.kind == Kind::failed) && state.hasDate())
        description.caption = u"Showing cached account data — last synced "_s + when();
    return description;
}

SyncStatusPresenter::SyncStatusPresenter(QObject* parent)
    : QObject(parent) {
    m_clock.setInterval(30'000);
    connect(&m_clock, &QTimer::timeout, this, &SyncStatusPresenter::refresh);
    refresh();
}

void SyncStatusPresenter::setSyncState(const AccountSyncState& state) {
    if (m_state == state)
        return;
    m_state = state;
    refresh();
}

void SyncStatusPresenter::refresh() {
    m_description = describe(m_state, QDateTime::currentDateTimeUtc());
    if (m_state.kind == Kind::synced)
        m_clock.start();
    else
        m_clock.stop();
    Q_EMIT changed();
}
