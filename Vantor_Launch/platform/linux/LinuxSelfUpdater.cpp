#include "LinuxSelfUpdater.h"

#include "SelfUpdaterAppcast.h"

#include <QCoroNetworkReply>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcSelfUpdater, "vantor.launch.selfupdater")

namespace {

const QString notConfiguredText = u"Launcher updates are not configured in this build."_s;

} // namespace

std::unique_ptr<SelfUpdater> makeSelfUpdater(SelfUpdater::Configuration configuration) {
    return std::make_unique<LinuxSelfUpdater>(std::move(configuration));
}

LinuxSelfUpdater::LinuxSelfUpdater(Configuration configuration, QObject* parent)
    : SelfUpdater(parent)
    , m_configuration(std::move(configuration)) {
    if (!m_configuration.network)
        m_configuration.network = std::make_shared<QNetworkAccessManager>();
    connect(&m_schedule, &QTimer::timeout, this, &LinuxSelfUpdater::checkForUpdatesInBackground);
    if (!m_configuration.appcastURL)
        setState(Status::notConfigured, notConfiguredText);
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
        setState(Status::notConfigured, notConfiguredText);
        if (userInitiated)
            Q_EMIT announced(notConfiguredText);
        co_return;
    }
    if (m_checking)
        co_return;
    const QUrl appcast = *m_configuration.appcastURL;
    if (appcast.scheme() != u"https"_s) {
        const QString text = u"The launcher's update feed must use HTTPS."_s;
        setState(Status::failed, text);
        if (userInitiated)
            Q_EMIT announced(text);
        co_return;
    }

    m_checking = true;
    setState(Status::checking, u"Checking for launcher updates…"_s);
    QPointer<LinuxSelfUpdater> guard(this);
    const auto network = m_configuration.network;

    QString failure;
    std::optional<AppcastRelease> newest;
    try {
        QNetworkRequest request(appcast);
        request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                             QNetworkRequest::AlwaysNetwork);
        request.setTransferTimeout(30'000);
        std::unique_ptr<QNetworkReply> reply(co_await network->get(request));
        if (!guard)
            co_return;
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (reply->error() != QNetworkReply::NoError || status < 200 || status > 299) {
            qCWarning(lcSelfUpdater) << "Appcast request failed:" << status << reply->errorString();
            failure = u"The launcher's update feed could not be reached."_s;
        } else {
            newest = SelfUpdaterAppcast::newestRelease(reply->readAll());
        }
    } catch (const std::exception& error) {
        qCWarning(lcSelfUpdater) << "Appcast unreadable:" << error.what();
        failure = u"The launcher's update feed could not be read."_s;
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
    if (newest &&
        SelfUpdaterAppcast::compareVersions(newest->version, m_configuration.currentBuild) > 0) {
        const QString text = u"Vantor Launcher "_s + newest->shortVersion +
                             u" is available. Download it from Help."_s;
        setState(Status::updateAvailable, text, newest->shortVersion, newest->downloadURL);
        // Like Sparkle, a newer launcher is announced even when nobody asked.
        Q_EMIT announced(text);
        co_return;
    }
    const QString text =
        u"Vantor Launcher "_s + m_configuration.currentVersion + u" is up to date."_s;
    setState(Status::upToDate, text);
    if (userInitiated)
        Q_EMIT announced(text);
}
