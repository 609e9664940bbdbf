#pragma once

#include "foundation/TransferControl.h"

#include <QObject>
#include <functional>
#include <memory>

// One long transfer (an update, a pack) as the views show it: bytes of bytes, a smoothed speed
// and the time left, and a Cancel that reaches the running download. The numbers notify a few
// times a second at most, however often the download reports.
class Transfer : public QObject {
    Q_OBJECT
    Q_PROPERTY(qint64 receivedBytes READ receivedBytes NOTIFY progressChanged)
    // -1 while unknown.
    Q_PROPERTY(qint64 expectedBytes READ expectedBytes NOTIFY progressChanged)
    // 0 to 1; -1 while the size is unknown.
    Q_PROPERTY(double fraction READ fraction NOTIFY progressChanged)
    // 0 until a second of the transfer has been seen.
    Q_PROPERTY(double bytesPerSecond READ bytesPerSecond NOTIFY progressChanged)
    // -1 while it cannot be told.
    Q_PROPERTY(int secondsRemaining READ secondsRemaining NOTIFY progressChanged)
    // False once the transfer has passed the point where stopping could leave anything half done.
    Q_PROPERTY(bool cancellable READ cancellable NOTIFY cancellableChanged)
    Q_PROPERTY(bool cancelRequested READ cancelRequested NOTIFY cancellableChanged)

public:
    // Milliseconds on a steady clock; tests give their own.
    using Clock = std::function<qint64()>;

    explicit Transfer(QObject* parent = nullptr, Clock clock = {});

    qint64 receivedBytes() const { return m_received; }
    qint64 expectedBytes() const { return m_expected; }
    double fraction() const;
    double bytesPerSecond() const { return m_rate; }
    int secondsRemaining() const;
    bool cancellable() const { return m_cancellable && !cancelRequested(); }
    bool cancelRequested() const { return m_cancellation->isCancelled(); }

    // What the service is handed: its progress lands here, its cancellation is this one's, and
    // its commit ends the offer to cancel.
    TransferControl control();
    void record(qint64 received, qint64 expected);
    void setCancellable(bool cancellable);

    Q_INVOKABLE void cancel();

Q_SIGNALS:
    void progressChanged();
    void cancellableChanged();

private:
    void sample(qint64 now);

    Clock m_clock;
    std::shared_ptr<Cancellation> m_cancellation = std::make_shared<Cancellation>();
    qint64 m_received = 0;
    qint64 m_expected = -1;
    double m_rate = 0;
    bool m_cancellable = true;
    // The speed is sampled over windows of a few hundred milliseconds.
    qint64 m_started = -1;
    qint64 m_windowStart = -1;
    qint64 m_windowBytes = 0;
    qint64 m_lastNotified = -1;
};
