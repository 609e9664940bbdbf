#include "account/DemoWebsiteAccountProvider.h"

#include "foundation/DemoData.h"
#include "foundation/LaunchError.h"

#include <QCoreApplication>
#include <QTimer>
#include <chrono>
#include <qcorotimer.h>

using namespace std::chrono_literals;

namespace {

QCoro::Task<> sleep(std::chrono::milliseconds duration) {
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    timer.start(duration);
    co_await timer;
}

} // namespace

DemoWebsiteAccountProvider::DemoWebsiteAccountProvider(Launch::DemoScenario scenario)
    : m_scenario(scenario) {}

QCoro::Task<WebsiteAccount> DemoWebsiteAccountProvider::signIn() {
    // Slower than a refresh on purpose, so that both states show on screen.
    co_await sleep(250ms);
    const auto scenario =
        m_scenario == Launch::DemoScenario::signedOut ? Launch::DemoScenario::combined : m_scenario;
    co_return DemoData::snapshot(scenario).account;
}

QCoro::Task<> DemoWebsiteAccountProvider::signOut() {
    co_return;
}

QCoro::Task<WebsiteAccount> DemoWebsiteAccountProvider::refreshAccount() {
    co_await sleep(180ms);
    if (m_scenario == Launch::DemoScenario::expiredSession)
        throw LaunchError::notConfigured(QCoreApplication::translate(
            "DemoWebsiteAccountProvider", "The demo website session has expired"));
    co_return DemoData::snapshot(m_scenario).account;
}

QCoro::Task<LaunchContentPackManifest> DemoWebsiteAccountProvider::downloadContentPackManifest() {
    throw LaunchError::notConfigured(QCoreApplication::translate(
        "DemoWebsiteAccountProvider", "Authenticated Content Pack downloads"));
    co_return {};
}
