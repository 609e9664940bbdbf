#include "platform/linux/ProcessWatch.h"

#include "platform/linux/Pidfd.h"

#include <QCoroFuture>
#include <QFuture>
#include <QPointer>
#include <QSocketNotifier>
#include <QtConcurrent/QtConcurrentRun>
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
    connect(&m_timer, &QTimer::timeout, this, &ProcessWatch::poll);
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
    apply(now, read(wanted(now)));
}

QCoro::Task<> ProcessWatch::refreshOffThread() {
    QPointer<ProcessWatch> self(this);
    for (;;) {
        const qint64 now = m_clock.elapsed();
        const quint64 reading = m_readings;
        QFuture<Reading> found = QtConcurrent::run(&ProcessWatch::read, wanted(now));
        const Reading result = co_await found;
        if (!self)
            co_return;
        // Another look applied meanwhile may be newer than this one, or older than the question:
        // look again from what it left.
        if (self->m_readings == reading) {
            self->apply(now, result);
            co_return;
        }
    }
}

void ProcessWatch::poll() {
    if (m_polling)
        return;
    m_polling = true;
    const qint64 now = m_clock.elapsed();
    const quint64 reading = m_readings;
    QFuture<Reading> found = QtConcurrent::run(&ProcessWatch::read, wanted(now));
    QPointer<ProcessWatch> self(this);
    found.then(this, [self, now, reading](const Reading& result) {
        if (!self)
            return;
        self->m_polling = false;
        // A look made meanwhile (runningApplications() asks for one) knows more than this one.
        if (self->m_readings == reading)
            self->apply(now, result);
    });
}

ProcessWatch::Wanted ProcessWatch::wanted(qint64 now) const {
    Wanted wanted;
    wanted.lastCreated = m_lastCreatedProcessId;
    // Without pidfds only the listing shows that a bundle process has ended.
    wanted.listing = !m_primed || !m_pidfdAvailable;
    for (const auto& [processId, entry] : m_entries)
        wanted.known.emplace(processId, entry.bundlePath || entry.looksUntil > now);
    return wanted;
}

ProcessWatch::Reading ProcessWatch::read(const Wanted& wanted) {
    Reading reading;
    reading.lastCreated = ProcessTable::lastCreatedProcessId();
    const bool listing =
        wanted.listing || !reading.lastCreated || reading.lastCreated != wanted.lastCreated;
    if (listing)
        reading.processIds = ProcessTable::processIds();
    for (const auto& [processId, again] : wanted.known) {
        if (again)
            reading.bundles.emplace(processId, ProcessTable::bundleOf(processId));
    }
    if (reading.processIds) {
        for (const qint64 processId : *reading.processIds) {
            if (!wanted.known.contains(processId))
                reading.bundles.emplace(processId, ProcessTable::bundleOf(processId));
        }
    }
    return reading;
}

// Applies a reading: a listing adds the new processes and drops the gone ones; without one (no
// process started since the last look) the known young and bundle processes are looked at again,
// since one may have reached its exec, become a zombie or replaced itself with another program.
void ProcessWatch::apply(qint64 now, const Reading& reading) {
    ++m_readings;
    Changes changes;
    const auto bundleOf = [&reading](qint64 processId) {
        const auto found = reading.bundles.find(processId);
        return found != reading.bundles.end() ? found->second : ProcessTable::bundleOf(processId);
    };
    if (reading.processIds) {
        const bool primed = m_primed;
        m_primed = true;
        ++m_sweep;
        Changes unreported;
        for (const qint64 processId : *reading.processIds) {
            auto [it, inserted] = m_entries.try_emplace(processId);
            Entry& entry = it->second;
            entry.sweep = m_sweep;
            if (inserted) {
                // What ran before the first look has not just started.
                entry.looksUntil = primed ? now + youngProcessMilliseconds : 0;
                look(processId, entry, primed ? changes : unreported, bundleOf(processId));
            } else if (entry.bundlePath || entry.looksUntil > now) {
                look(processId, entry, changes, bundleOf(processId));
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
    } else {
        for (auto& [processId, entry] : m_entries) {
            if (entry.bundlePath || entry.looksUntil > now)
                look(processId, entry, changes, bundleOf(processId));
        }
    }
    m_lastCreatedProcessId = reading.lastCreated;
    report(changes);
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

void ProcessWatch::look(qint64 processId, Entry& entry, Changes& changes,
                        const std::optional<QString>& bundle) {
    if (bundle == entry.bundlePath)
        return;
    if (entry.bundlePath)
        changes.ended = true;
    if (bundle)
        changes.started = true;
    entry.bundlePath = bundle;
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
