#include "platform/linux/ProcessWatch.h"

#include "platform/linux/Pidfd.h"

#include <QSocketNotifier>
#include <cerrno>
#include <unistd.h>

namespace {

// Long enough for a fork to reach its exec, even on a busy machine.
constexpr qint64 youngProcessMilliseconds = 3000;

} // namespace

ProcessWatch::Entry::~Entry() {
    endNotifier.reset();
    if (pidfd >= 0)
        ::close(pidfd);
}

ProcessWatch::ProcessWatch(QObject* parent)
    : QObject(parent) {
    m_clock.start();
    m_timer.setInterval(pollInterval);
    connect(&m_timer, &QTimer::timeout, this, &ProcessWatch::refresh);
}

ProcessWatch::~ProcessWatch() = default;

void ProcessWatch::start() {
    refresh();
    m_timer.start();
}

void ProcessWatch::stop() {
    m_timer.stop();
}

void ProcessWatch::refresh() {
    const qint64 now = m_clock.elapsed();
    Changes changes;
    const auto lastCreated = ProcessTable::lastCreatedProcessId();
    // Without pidfds only the listing shows that a bundle process has ended.
    if (m_primed && m_pidfdAvailable && lastCreated && lastCreated == m_lastCreatedProcessId)
        lookAgain(now, changes);
    else
        scan(now, changes);
    m_lastCreatedProcessId = lastCreated;
    report(changes);
}

void ProcessWatch::scan(qint64 now, Changes& changes) {
    const bool primed = m_primed;
    m_primed = true;
    ++m_sweep;
    Changes unreported;

    for (const qint64 processId : ProcessTable::processIds()) {
        auto [it, inserted] = m_entries.try_emplace(processId);
        Entry& entry = it->second;
        entry.sweep = m_sweep;
        if (inserted) {
            // What ran before the first look has not just started.
            entry.looksUntil = primed ? now + youngProcessMilliseconds : 0;
            look(processId, entry, primed ? changes : unreported);
        } else if (entry.bundlePath || entry.looksUntil > now) {
            look(processId, entry, changes);
        }
    }

    for (auto it = m_entries.begin(); it != m_entries.end();) {
        if (it->second.sweep == m_sweep) {
            ++it;
            continue;
        }
        if (it->second.bundlePath)
            changes.ended = true;
        it = m_entries.erase(it);
    }
}

// Nothing has started since the last look, but a young process may have reached its exec, and a
// bundle process may have become a zombie or replaced itself with another program.
void ProcessWatch::lookAgain(qint64 now, Changes& changes) {
    for (auto& [processId, entry] : m_entries) {
        if (entry.bundlePath || entry.looksUntil > now)
            look(processId, entry, changes);
    }
}

QList<BundleProcess> ProcessWatch::bundleProcesses() const {
    QList<BundleProcess> processes;
    for (const auto& [processId, entry] : m_entries) {
        if (entry.bundlePath)
            processes.append({processId, *entry.bundlePath});
    }
    std::sort(
        processes.begin(), processes.end(),
        [](const BundleProcess& a, const BundleProcess& b) { return a.processId < b.processId; });
    return processes;
}

void ProcessWatch::look(qint64 processId, Entry& entry, Changes& changes) {
    std::optional<QString> bundle = ProcessTable::bundleOf(processId);
    if (bundle == entry.bundlePath)
        return;
    if (entry.bundlePath)
        changes.ended = true;
    if (bundle)
        changes.started = true;
    entry.bundlePath = std::move(bundle);
    if (entry.bundlePath && !entry.endNotifier)
        watchEnd(processId, entry);
}

void ProcessWatch::watchEnd(qint64 processId, Entry& entry) {
    if (!m_pidfdAvailable)
        return;
    entry.pidfd = openPidfd(pid_t(processId));
    if (entry.pidfd < 0) {
        if (errno == ENOSYS || errno == EPERM) {
            m_pidfdAvailable = false;
            m_timer.setInterval(pollIntervalWithoutPidfd);
        }
        return;
    }
    // A pidfd becomes readable when its process ends.
    entry.endNotifier = std::make_unique<QSocketNotifier>(entry.pidfd, QSocketNotifier::Read);
    connect(entry.endNotifier.get(), &QSocketNotifier::activated, this,
            [this, processId] { onEnded(processId); });
}

void ProcessWatch::onEnded(qint64 processId) {
    const auto it = m_entries.find(processId);
    if (it == m_entries.end())
        return;
    // The notifier is in the middle of emitting: it goes later, and unregistered.
    it->second.endNotifier->setEnabled(false);
    it->second.endNotifier.release()->deleteLater();
    const bool wasBundleProcess = it->second.bundlePath.has_value();
    m_entries.erase(it);
    report({false, wasBundleProcess});
}

void ProcessWatch::report(const Changes& changes) {
    if (changes.ended)
        Q_EMIT bundleProcessEnded();
    if (changes.started)
        Q_EMIT bundleProcessStarted();
}
