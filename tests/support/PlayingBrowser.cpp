#include "PlayingBrowser.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QFile>
#include <QHash>
#include <QNetworkReply>
#include <QUrlQuery>
#include <algorithm>
#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QString readText(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// The value of a key of an entry or list, as the desktop reads it: the first line that sets it.
QString valueOf(const QString& text, const QString& key) {
    for (const QString& line : text.split(u'\n')) {
        if (line.section(u'=', 0, 0).trimmed() == key)
            return line.section(u'=', 1).trimmed();
    }
    return {};
}

// An Exec line split into arguments by the desktop entry rules: spaces separate, double quotes
// group, and a backslash inside quotes takes the next character literally.
QStringList execArguments(const QString& exec) {
    QStringList arguments;
    QString current;
    bool quoted = false;
    bool any = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec[i];
        if (quoted && c == u'\\' && i + 1 < exec.size()) {
            current += exec[++i];
        } else if (c == u'"') {
            quoted = !quoted;
            any = true;
        } else if (c == u' ' && !quoted) {
            if (any || !current.isEmpty())
                arguments.append(current);
            current.clear();
            any = false;
        } else {
            current += c;
        }
    }
    if (any || !current.isEmpty())
        arguments.append(current);
    return arguments;
}

QByteArray procFile(const char* process, const char* name) {
    const QByteArray path = QByteArray("/proc/") + process + '/' + name;
    const int descriptor = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return {};
    QByteArray content(128 * 1024, Qt::Uninitialized);
    const ssize_t size = ::read(descriptor, content.data(), size_t(content.size()));
    ::close(descriptor);
    content.resize(size > 0 ? size : 0);
    return content;
}

// Nanoseconds the process has spent on a processor.
qint64 processorTime(const char* process) {
    return procFile(process, "schedstat").split(' ').value(0).toLongLong();
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
    const QUrlQuery query(address);
    for (const QString& name : {u"code"_s, u"state"_s}) {
        const QString value = query.queryItemValue(name, QUrl::FullyEncoded);
        if (value.size() >= 8)
            secrets.append(value.toUtf8());
    }
    m_watching = true;
    m_watch = std::thread([this, secrets] { watchCommandLines(secrets); });

    const QString mimeapps =
        readText(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/mimeapps.list"_s);
    const QString entryName = valueOf(mimeapps, u"x-scheme-handler/"_s + address.scheme());
    const QString entry =
        readText(qEnvironmentVariable("XDG_DATA_HOME") + u"/applications/"_s + entryName);

    if (desktop == Desktop::dbusActivation && valueOf(entry, u"DBusActivatable"_s) == u"true"_s) {
        // The bus name is the entry's name; the object path is that name with dots as slashes.
        const QString name = entryName.chopped(int(qstrlen(".desktop")));
        QString path = u'/' + name;
        path.replace(u'.', u'/').replace(u'-', u'_');
        QDBusMessage call =
            QDBusMessage::createMethodCall(name, path, u"org.freedesktop.Application"_s, u"Open"_s);
        call << QStringList{QString::fromUtf8(address.toEncoded())} << QVariantMap();
        // A connection of the desktop's own, as another process would have.
        QDBusConnection bus =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"playing-desktop"_s);
        auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
            openAnswered = !watcher->isError();
            watcher->deleteLater();
        });
        return;
    }

    QStringList arguments = execArguments(valueOf(entry, u"Exec"_s));
    if (arguments.isEmpty())
        return;
    arguments.replaceInStrings(u"%u"_s, QString::fromUtf8(address.toEncoded()));
    m_handler = std::make_unique<QProcess>();
    connect(m_handler.get(), &QProcess::finished, this,
            [this](int code) { handlerExitCode = code; });
    m_handler->start(arguments.takeFirst(), arguments);
}

void PlayingBrowser::watchCommandLines(QList<QByteArray> secrets) {
    using Clock = std::chrono::steady_clock;
    struct Sighting {
        qint64 processorTime;
        Clock::time_point at;
    };
    QHash<QByteArray, Sighting> firstSightings;
    while (m_watching) {
        DIR* processes = ::opendir("/proc");
        if (!processes)
            return;
        while (const dirent* process = ::readdir(processes)) {
            if (process->d_name[0] < '1' || process->d_name[0] > '9')
                continue;
            const QByteArray line = procFile(process->d_name, "cmdline");
            if (line.contains("--handover"))
                m_sawHandOver = true;
            if (std::none_of(secrets.cbegin(), secrets.cend(),
                             [&](const QByteArray& secret) { return line.contains(secret); }))
                continue;
            const Sighting now{processorTime(process->d_name), Clock::now()};
            const auto first = firstSightings.constFind(process->d_name);
            if (first == firstSightings.constEnd()) {
                firstSightings.insert(process->d_name, now);
            } else if (now.processorTime - first->processorTime >= 1'000'000 ||
                       now.at - first->at >= std::chrono::milliseconds(500)) {
                const std::lock_guard lock(m_mutex);
                m_exposures.append(QString::fromUtf8(process->d_name) + u": "_s +
                                   QString::fromUtf8(QByteArray(line).replace('\0', ' ')));
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
