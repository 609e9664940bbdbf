#pragma once

#include <QObject>
#include <atomic>
#include <functional>
#include <memory>

// A user's Cancel, carried down to the work it stops. The main thread cancels; the network
// read loops hear it through the signal and abort their request at once, and worker loops
// (hashing, unpacking) look at isCancelled() between chunks.
class Cancellation : public QObject {
    Q_OBJECT

public:
    // Main thread. Only the first call signals.
    void cancel() {
        if (m_cancelled.exchange(true))
            return;
        Q_EMIT cancelled();
    }
    // Any thread.
    bool isCancelled() const { return m_cancelled.load(std::memory_order_relaxed); }
    // Throws the cancelled URL error when cancelled, so that a flow ends the way an aborted
    // request ends it.
    void throwIfCancelled() const;

Q_SIGNALS:
    void cancelled();

private:
    std::atomic<bool> m_cancelled{false};
};

// What a long transfer (an update, a pack) reports to whoever shows it, and how it is stopped.
// Both parts may be empty.
struct TransferControl {
    // Bytes received so far of the bytes expected (-1 while unknown); main thread, a few times a
    // second at most.
    std::function<void(qint64 received, qint64 expected)> progress;
    std::shared_ptr<Cancellation> cancellation;
    // Main thread, once, when the transfer passes the point after which stopping it could leave
    // something half done (the exchange of the bundles, the publishing of a pack): from then on a
    // Cancel is no longer offered.
    std::function<void()> committing;
    // Nobody waits for it (a release prepared while the application runs): its threads run only
    // when the machine has nothing else to do.
    bool background = false;

    bool isCancelled() const { return cancellation && cancellation->isCancelled(); }
    void throwIfCancelled() const {
        if (cancellation)
            cancellation->throwIfCancelled();
    }
    // Throws when cancelled, then tells whoever shows the transfer that it can no longer stop.
    void commit() const {
        throwIfCancelled();
        if (committing)
            committing();
    }
    void report(qint64 received, qint64 expected) const {
        if (progress)
            progress(received, expected);
    }
};
