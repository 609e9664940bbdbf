#include "platform/linux/LinuxWorkspace.h"

#include "foundation/LaunchError.h"
#include "platform/BundleMetadata.h"
#include "platform/linux/BundleExecutable.h"
#include "platform/linux/Pidfd.h"
#include "platform/linux/ProcessWatch.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QLoggingCategory>
#include <QMetaMethod>
#include <QPointer>
#include <QProcess>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <unistd.h>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcWorkspace, "vantor.launch.workspace")

namespace {

// A file manager that does not answer within this time is taken as absent.
constexpr int revealTimeoutMilliseconds = 5000;

QString cleanLocalPath(const QUrl& url) {
    return QDir::cleanPath(url.toLocalFile());
}

bool sendTermination(qint64 processId, const QString& bundlePath) {
    // Through a pidfd the signal cannot reach a process that has taken over a reused id.
    const int pidfd = openPidfd(pid_t(processId));
    if (pidfd < 0 && errno != ENOSYS)
        return false;
    // Both sides resolved, then compared whole: a nested bundle or a sibling whose name merely
    // begins with this one's is another application.
    const auto bundle = ProcessTable::bundleOf(processId);
    bool sent = false;
    if (bundle && *bundle == ProcessTable::resolvedBundlePath(bundlePath))
        sent = pidfd >= 0 ? signalThroughPidfd(pidfd, SIGTERM) == 0
                          : ::kill(pid_t(processId), SIGTERM) == 0;
    if (pidfd >= 0)
        ::close(pidfd);
    return sent;
}

} // namespace

LinuxWorkspace::LinuxWorkspace(QString folderOpener, QObject* parent)
    : Workspace(parent)
    , m_folderOpener(std::move(folderOpener))
    , m_watch(new ProcessWatch(this)) {
    // Queued, so that a change found while answering a question is reported after the answer.
    connect(m_watch, &ProcessWatch::bundleProcessStarted, this, &Workspace::applicationLaunched,
            Qt::QueuedConnection);
    connect(m_watch, &ProcessWatch::bundleProcessEnded, this, &Workspace::applicationTerminated,
            Qt::QueuedConnection);
}

LinuxWorkspace::~LinuxWorkspace() = default;

std::optional<QUrl> LinuxWorkspace::urlForApplication(const QString&) const {
    // Linux has no registry of applications by bundle identifier.
    return std::nullopt;
}

QList<RunningApplication>
LinuxWorkspace::runningApplications(const QString& bundleIdentifier) const {
    m_watch->refresh();
    return runningAsLastSeen(bundleIdentifier);
}

QCoro::Task<QList<RunningApplication>>
LinuxWorkspace::findRunningApplications(QString bundleIdentifier) const {
    const QPointer<const LinuxWorkspace> self(this);
    QCoro::Task<> refreshing = m_watch->refreshOffThread();
    co_await refreshing;
    if (!self)
        co_return {};
    co_return self->runningAsLastSeen(bundleIdentifier);
}

QList<RunningApplication> LinuxWorkspace::runningAsLastSeen(const QString& bundleIdentifier) const {
    const QList<BundleProcess> processes = m_watch->bundleProcesses();
    QList<RunningApplication> running;
    QHash<qint64, KnownProcess> stillRunning;
    for (const BundleProcess& process : processes) {
        const auto identifier = identifierOf(process.processId, process.bundlePath);
        stillRunning.insert(process.processId, {process.bundlePath, identifier});
        if (identifier == bundleIdentifier)
            running.append(
                {process.processId, bundleIdentifier, QUrl::fromLocalFile(process.bundlePath)});
    }
    m_identifiers = std::move(stillRunning);
    return running;
}

std::optional<QString> LinuxWorkspace::identifierOf(qint64 processId,
                                                    const QString& bundlePath) const {
    const auto known = m_identifiers.constFind(processId);
    if (known != m_identifiers.constEnd() && known->bundlePath == bundlePath)
        return known->bundleIdentifier;
    const auto metadata = readBundleMetadata(QUrl::fromLocalFile(bundlePath));
    return metadata ? metadata->bundleIdentifier : std::nullopt;
}

bool LinuxWorkspace::terminate(const RunningApplication& application) {
    // Never 0 or -1: kill() would read those as a whole process group or every process.
    if (application.processId <= 1 || !application.bundleURL.isLocalFile())
        return false;
    return sendTermination(application.processId, cleanLocalPath(application.bundleURL));
}

void LinuxWorkspace::openApplication(const QUrl& bundle) {
    // A second copy is not started. Raising the running one has no reliable way across Linux
    // desktops (Wayland gives focus only with a token from the user's own action): it is left be.
    if (isRunning(bundle))
        return;
    const auto executable = bundleExecutable(bundle);
    if (!executable || !QProcess::startDetached(*executable, {}, QDir::homePath()))
        qCWarning(lcWorkspace) << "Could not start the application at" << bundle.toLocalFile();
}

bool LinuxWorkspace::isRunning(const QUrl& bundle) const {
    if (!bundle.isLocalFile())
        return false;
    const QString path = ProcessTable::resolvedBundlePath(cleanLocalPath(bundle));
    m_watch->refresh();
    const QList<BundleProcess> processes = m_watch->bundleProcesses();
    return std::any_of(processes.begin(), processes.end(),
                       [&](const BundleProcess& process) { return process.bundlePath == path; });
}

QCoro::Task<> LinuxWorkspace::openURL(QUrl url, QUrl application, OpenOptions) {
    // Activation is the window manager's business here; an application that is already running
    // receives the URL from its new process, as single-instance programs on Linux do.
    const auto executable = bundleExecutable(application);
    if (!executable ||
        !QProcess::startDetached(*executable, {url.toString(QUrl::FullyEncoded)}, QDir::homePath()))
        throw LaunchError::file(QCoreApplication::translate(
                                    "LinuxWorkspace", "The application at %1 could not be opened.")
                                    .arg(cleanLocalPath(application)));
    co_return;
}

void LinuxWorkspace::revealInFileBrowser(const QUrl& bundle) {
    const QString folder = QFileInfo(cleanLocalPath(bundle)).path();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        openFolder(folder);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
        u"org.freedesktop.FileManager1"_s, u"ShowItems"_s);
    call << QStringList{QUrl::fromLocalFile(cleanLocalPath(bundle)).toString(QUrl::FullyEncoded)}
         << QString();
    auto* watcher =
        new QDBusPendingCallWatcher(bus.asyncCall(call, revealTimeoutMilliseconds), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, folder](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                if (finished->isError())
                    openFolder(folder);
            });
}

void LinuxWorkspace::openFolder(const QString& folder) const {
    if (!QProcess::startDetached(m_folderOpener, {folder}))
        qCWarning(lcWorkspace) << "Could not open the folder" << folder;
}

void LinuxWorkspace::connectNotify(const QMetaMethod& signal) {
    if (signal == QMetaMethod::fromSignal(&Workspace::applicationLaunched) ||
        signal == QMetaMethod::fromSignal(&Workspace::applicationTerminated)) {
        if (!m_watch->isActive())
            m_watch->start();
    }
}

void LinuxWorkspace::disconnectNotify(const QMetaMethod&) {
    // Qt may call this while it holds the lock that isSignalConnected() takes, and with an
    // invalid method for a disconnect of everything: ask the signals themselves, a moment later.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (!isSignalConnected(QMetaMethod::fromSignal(&Workspace::applicationLaunched)) &&
                !isSignalConnected(QMetaMethod::fromSignal(&Workspace::applicationTerminated)))
                m_watch->stop();
        },
        Qt::QueuedConnection);
}
