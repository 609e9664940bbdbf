#include "LinuxSelfUpdater.h"

#include "SelfUpdaterAppcast.h"
#include "foundation/HttpTransfer.h"

#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QRandomGenerator>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcSelfUpdater, "vantor.launch.selfupdater")

namespace {

// A function, not a constant: the translation is installed after static initialisation.
QString notConfiguredText() {
    return LinuxSelfUpdater::tr("Launcher updates are not configured in this build.");
}

// Sparkle splits a phased rollout into seven groups.
constexpr int rolloutGroups = 7;

// The page is offered only when there is nothing to download, as for an informational release.
SelfUpdater::Offer offerFor(const AppcastRelease& release) {
    return {release.shortVersion, release.downloadURL,
            release.downloadURL.isEmpty() ? release.infoURL : QUrl(), release.critical};
}

QString announcementFor(const SelfUpdater::Offer& offer) {
    if (!offer.downloadURL.isEmpty())
        return offer.critical
                   ? LinuxSelfUpdater::tr("Vantor Launcher %1 is a critical update. Download it "
                                          "from Help.")
                         .arg(offer.version)
                   : LinuxSelfUpdater::tr("Vantor Launcher %1 is available. Download it from "
                                          "Help.")
                         .arg(offer.version);
    if (!offer.releasePageURL.isEmpty())
        return offer.critical
                   ? LinuxSelfUpdater::tr("Vantor Launcher %1 is a critical update. Its page is "
                                          "linked in Help.")
                         .arg(offer.version)
                   : LinuxSelfUpdater::tr("Vantor Launcher %1 is available. Its page is linked "
                                          "in Help.")
                         .arg(offer.version);
    return offer.critical
               ? LinuxSelfUpdater::tr("Vantor Launcher %1 is a critical update.").arg(offer.version)
               : LinuxSelfUpdater::tr("Vantor Launcher %1 is available.").arg(offer.version);
}

} // namespace

std::unique_ptr<SelfUpdater> makeSelfUpdater(SelfUpdater::Configuration configuration) {
    return std::make_unique<LinuxSelfUpdater>(std::move(configuration));
}

LinuxSelfUpdater::LinuxSelfUpdater(Configuration configuration, QObject* parent)
    : SelfUpdater(parent)
    , m_configuration(std::move(configuration))
    // Drawn for each run: the launcher keeps no setting of its own for it.
    , m_rolloutGroup(QRandomGenerator::global()->bounded(rolloutGroups)) {
    if (!m_configuration.network)
        m_configuration.network = std::make_shared<QNetworkAccessManager>();
    connect(&m_schedule, &QTimer::timeout, this, &LinuxSelfUpdater::checkForUpdatesInBackground);
    if (!m_configuration.appcastURL)
        setState(Status::notConfigured, notConfiguredText());
}

LinuxSelfUpdater::~LinuxSelfUpdater() = default;

void LinuxSelfUpdater::startAutomaticChecks(std::chrono::seconds interval) {
    m_schedule.start(interval);
    checkForUpdatesInBackground();
}

void LinuxSelfUpdater::checkForUpdates() {
    check(true);
}

void LinuxSelfUpdater::checkForUpdatesInBackground() {
    check(false);
}

QCoro::Task<> LinuxSelfUpdater::check(bool userInitiated) {
    if (!m_configuration.appcastURL) {
        setState(Status::notConfigured, notConfiguredText());
        if (userInitiated)
            Q_EMIT announced(notConfiguredText());
        co_return;
    }
    if (m_checking)
        co_return;
    const QUrl appcast = *m_configuration.appcastURL;
    if (appcast.scheme() != u"https"_s) {
        const QString text = tr("The launcher's update feed must use HTTPS.");
        setState(Status::failed, text);
        if (userInitiated)
            Q_EMIT announced(text);
        co_return;
    }

    m_checking = true;
    setState(Status::checking, tr("Checking for launcher updates…"));
    QPointer<LinuxSelfUpdater> guard(this);
    const auto network = m_configuration.network;
    const AppcastHost host{
        m_configuration.currentBuild,   u"linux"_s, appcast, {}, userInitiated, m_rolloutGroup,
        QDateTime::currentDateTimeUtc()};

    QString failure;
    std::optional<AppcastRelease> newest;
    try {
        QNetworkRequest request(appcast);
        request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                             QNetworkRequest::AlwaysNetwork);
        request.setTransferTimeout(30'000);
        // A feed beyond any real appcast's size is cut off rather than held in memory.
        QCoro::Task<HttpTransfer::Response> fetching =
            HttpTransfer(network).get(request, SelfUpdaterAppcast::maximumDocumentSize);
        const HttpTransfer::Response response = co_await std::move(fetching);
        if (!guard)
            co_return;
        if (response.status < 200 || response.status > 299) {
            qCWarning(lcSelfUpdater) << "Appcast request failed:" << response.status;
            failure = tr("The launcher's update feed could not be reached.");
        } else {
            newest = SelfUpdaterAppcast::newestRelease(response.body, host);
        }
    } catch (const LaunchError& error) {
        qCWarning(lcSelfUpdater) << "Appcast not fetched:" << error.description();
        failure = error.domain() == LaunchError::Domain::url
                      ? tr("The launcher's update feed could not be reached.")
                      : tr("The launcher's update feed could not be read.");
    } catch (const std::exception& error) {
        qCWarning(lcSelfUpdater) << "Appcast unreadable:" << error.what();
        failure = tr("The launcher's update feed could not be read.");
    }
    if (!guard)
        co_return;
    m_checking = false;

    if (!failure.isEmpty()) {
        setState(Status::failed, failure);
        if (userInitiated)
            Q_EMIT announced(failure);
        co_return;
    }
    if (newest && SelfUpdaterAppcast::isNewer(*newest, host)) {
        const Offer offer = offerFor(*newest);
        const QString text = announcementFor(offer);
        setState(Status::updateAvailable, text, offer);
        // Like Sparkle, a newer launcher is announced even when nobody asked.
        Q_EMIT announced(text);
        co_return;
    }
    const QString text =
        tr("Vantor Launcher %1 is up to date.").arg(m_configuration.currentVersion);
    setState(Status::upToDate, text);
    if (userInitiated)
        Q_EMIT announced(text);
}
