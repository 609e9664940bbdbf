#include "PlayingBrowser.h"

#include "platform/linux/SchemeHandlerRegistration.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QFile>
#include <QHash>
#include <QNetworkReply>
#include <QUrlQuery>
#include <algorithm>
#include <chrono>
#include <dirent.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.read(128 * 1024) : QByteArray();
}

// The value of a key in a desktop entry or "mimeapps.list": the first line that sets it.
QString valueOf(const QByteArray& text, const QString& key) {
    for (const QString& line : QString::fromUtf8(text).split(u'\n'))
        if (line.section(u'=', 0, 0).trimmed() == key)
            return line.section(u'=', 1).trimmed();
    return {};
}

} // namespace

PlayingBrowser::PlayingBrowser(std::shared_ptr<QNetworkAccessManager> network)
    : m_network(std::move(network)) {}

PlayingBrowser::~PlayingBrowser() {
    stopWatching();
    if (m_handler && m_handler->state() != QProcess::NotRunning) {
        m_handler->kill();
        m_handler->waitForFinished(5000);
    }
    m_network->clearConnectionCache();
}

std::shared_ptr<LinuxBrowserSignIn> PlayingBrowser::signInWindow(const QString& launcher) {
    return std::make_shared<LinuxBrowserSignIn>(
        LinuxBrowserSignIn::defaultSocketPath(), [this](const QUrl& page) { return open(page); },
        [launcher](const QString& scheme) {
            SchemeHandlerRegistration::registerForUser(scheme, launcher);
        });
}

bool PlayingBrowser::open(const QUrl& page) {
    openedPages.append(page);
    QNetworkRequest request(page);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    QNetworkReply* reply = m_network->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        handedOver = alterCallback(reply->header(QNetworkRequest::LocationHeader).toUrl());
        openWithSchemeHandler(handedOver);
    });
    return true;
}

void PlayingBrowser::openWithSchemeHandler(const QUrl& address) {
    stopWatching(); // of an earlier sign-in; what it found stays on the list
    m_sawHandOver = false;
    handlerExitCode = -1;
    openAnswered.reset();
    QList<QByteArray> secrets;
    for (const QString& name : {u"code"_s, u"state"_s}) {
        const QString value = QUrlQuery(address).queryItemValue(name, QUrl::FullyEncoded);
        if (value.size() >= 8)
            secrets.append(value.toUtf8());
    }
    m_watching = true;
    m_watch = std::thread([this, secrets] { watchCommandLines(secrets); });

    const QString entryName =
        valueOf(readFile(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/mimeapps.list"_s),
                u"x-scheme-handler/"_s + address.scheme());
    const QByteArray entry =
        readFile(qEnvironmentVariable("XDG_DATA_HOME") + u"/applications/"_s + entryName);
    const QString encoded = QString::fromUtf8(address.toEncoded());

    if (desktop == Desktop::dbusActivation && valueOf(entry, u"DBusActivatable"_s) == u"true"_s) {
        // The bus name is the entry's name, the object path that name with slashes for dots; the
        // call comes from a connection of its own, as from another process.
        const QString name = entryName.chopped(int(qstrlen(".desktop")));
        QDBusMessage call =
            QDBusMessage::createMethodCall(name, u'/' + QString(name).replace(u'.', u'/'),
                                           u"org.freedesktop.Application"_s, u"Open"_s);
        call << QStringList{encoded} << QVariantMap();
        QDBusConnection bus =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"playing-desktop"_s);
        auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
            openAnswered = !watcher->isError();
            watcher->deleteLater();
        });
        return;
    }

    QStringList arguments = QProcess::splitCommand(valueOf(entry, u"Exec"_s));
    if (arguments.isEmpty())
        return;
    arguments.replaceInStrings(u"%u"_s, encoded);
    m_handler = std::make_unique<QProcess>();
    connect(m_handler.get(), &QProcess::finished, this,
            [this](int code) { handlerExitCode = code; });
    m_handler->start(arguments.takeFirst(), arguments);
}

void PlayingBrowser::watchCommandLines(QList<QByteArray> secrets) {
    using Clock = std::chrono::steady_clock;
    struct Sighting {
        qint64 processorNanoseconds;
        Clock::time_point at;
    };
    QHash<QByteArray, Sighting> firstSightings;
    while (m_watching) {
        DIR* processes = ::opendir("/proc");
        if (!processes)
            return;
        while (const dirent* process = ::readdir(processes)) {
            const QByteArray folder = "/proc/" + QByteArray(process->d_name);
            const QByteArray line = readFile(QString::fromLatin1(folder + "/cmdline"));
            if (line.contains("--handover"))
                m_sawHandOver = true;
            if (std::none_of(secrets.cbegin(), secrets.cend(),
                             [&](const QByteArray& secret) { return line.contains(secret); }))
                continue;
            const Sighting now{
                readFile(QString::fromLatin1(folder + "/schedstat")).split(' ')[0].toLongLong(),
                Clock::now()};
            const auto first = firstSightings.constFind(folder);
            if (first == firstSightings.constEnd()) {
                firstSightings.insert(folder, now);
            } else if (now.processorNanoseconds - first->processorNanoseconds >= 1'000'000 ||
                       now.at - first->at >= std::chrono::milliseconds(500)) {
                const std::lock_guard lock(m_mutex);
                m_exposures.append(QString::fromUtf8(QByteArray(line).replace('\0', ' ')));
            }
        }
        ::closedir(processes);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

QStringList PlayingBrowser::stopWatching() {
    m_watching = false;
    if (m_watch.joinable())
        m_watch.join();
    const std::lock_guard lock(m_mutex);
    m_exposures.removeDuplicates();
    return m_exposures;
}
