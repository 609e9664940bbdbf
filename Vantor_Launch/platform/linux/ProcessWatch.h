#pragma once

#include "platform/linux/ProcessTable.h"

#include <QCoroTask>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>
#include <memory>
#include <optional>
#include <unordered_map>

class QSocketNotifier;

// Keeps track of the processes that run from application bundles and reports when one starts or
// ends. New processes are found by a poll: when the kernel has handed out no process id since the
// last one, nothing is listed at all; otherwise /proc is listed and only ids not seen before are
// looked at. The end of a bundle process is seen at once through a pidfd.
class ProcessWatch : public QObject {
    Q_OBJECT

public:
    static constexpr int pollInterval = 1000;
    // Without pidfds, ends are found by the poll too, so it runs often enough for them.
    static constexpr int pollIntervalWithoutPidfd = 250;

    explicit ProcessWatch(QObject* parent = nullptr);
    ~ProcessWatch() override;

    // Polls on a timer until stopped. Processes running before the first look are not reported.
    void start();
    void stop();
    bool isActive() const { return m_timer.isActive(); }

    // Brings the table up to date now, reporting what changed since the last look. The timer's
    // polls read /proc on a worker instead and apply what they found on this thread.
    void refresh();
    // The same, reading /proc on a worker: for callers on a thread that must not block.
    QCoro::Task<> refreshOffThread();
    // The bundle processes as of the last look.
    QList<BundleProcess> bundleProcesses() const;

Q_SIGNALS:
    void bundleProcessStarted();
    void bundleProcessEnded();

private:
    struct Entry {
        Entry() = default;
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;
        ~Entry();

        std::optional<QString> bundlePath;
        quint64 sweep = 0;
        // A young process may still be between fork and exec, so it is looked at again until
        // then; an old one keeps what it was.
        qint64 looksUntil = 0;
        int pidfd = -1;
        std::unique_ptr<QSocketNotifier> endNotifier;
    };

    struct Changes {
        bool started = false;
        bool ended = false;
    };
    // What a look at /proc found: the last process id handed out, the listing (when one was
    // needed) and the bundle of each process looked at.
    struct Reading {
        std::optional<qint64> lastCreated;
        std::optional<QList<qint64>> processIds;
        std::unordered_map<qint64, std::optional<QString>> bundles;
    };
    // Which processes a reading looks at: those a listing shows for the first time, and the known
    // ones that are young or run from a bundle.
    struct Wanted {
        bool listing = true;
        std::optional<qint64> lastCreated;
        std::unordered_map<qint64, bool> known; // process id -> looked at again
    };

    Wanted wanted(qint64 now) const;
    static Reading read(const Wanted& wanted);
    void apply(qint64 now, const Reading& reading);
    void poll();
    void look(qint64 processId, Entry& entry, Changes& changes,
              const std::optional<QString>& bundle);
    void watchEnd(qint64 processId, Entry& entry);
    void onEnded(qint64 processId);
    void report(const Changes& changes);

    std::unordered_map<qint64, Entry> m_entries;
    quint64 m_sweep = 0;
    std::optional<qint64> m_lastCreatedProcessId;
    bool m_primed = false;
    bool m_pidfdAvailable = true;
    bool m_polling = false;
    // Bumped by every look, so that a poll's reading that another look overtook is dropped.
    quint64 m_readings = 0;
    QElapsedTimer m_clock;
    QTimer m_timer;
};
