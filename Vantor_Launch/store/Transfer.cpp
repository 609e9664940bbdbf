#include "store/Transfer.h"

#include <QElapsedTimer>
#include <QPointer>
#include <cmath>

namespace {

// Shorter windows make the speed jitter; longer ones make it lag.
constexpr qint64 windowMilliseconds = 500;
// Weight of the newest window in the smoothed speed.
constexpr double smoothing = 0.3;
// Redraws at most this often.
constexpr qint64 notifyMilliseconds = 250;

} // namespace

Transfer::Transfer(QObject* parent, Clock clock)
    : QObject(parent)
    , m_clock(std::move(clock)) {
    if (!m_clock) {
        auto timer = std::make_shared<QElapsedTimer>();
        timer->start();
        m_clock = [timer] { return timer->elapsed(); };
    }
}

double Transfer::fraction() const {
    if (m_expected <= 0)
        return -1;
    return std::clamp(double(m_received) / double(m_expected), 0.0, 1.0);
}

int Transfer::secondsRemaining() const {
    if (m_expected <= 0 || m_rate <= 0)
        return -1;
    return int(std::ceil(double(std::max<qint64>(m_expected - m_received, 0)) / m_rate));
}

TransferControl Transfer::control() {
    TransferControl control;
    control.cancellation = m_cancellation;
    control.progress = [self = QPointer<Transfer>(this)](qint64 received, qint64 expected) {
        if (self)
            self->record(received, expected);
    };
    control.committing = [self = QPointer<Transfer>(this)] {
        if (self)
            self->setCancellable(false);
    };
    return control;
}

void Transfer::record(qint64 received, qint64 expected) {
    const qint64 now = m_clock();
    if (m_started < 0) {
        m_started = now;
        m_windowStart = now;
    }
    if (received < m_received) {
        // The download started over (its server answered the whole file again).
        m_windowStart = now;
        m_windowBytes = 0;
    } else {
        m_windowBytes += received - m_received;
    }
    m_received = received;
    m_expected = expected;
    sample(now);

    const bool finished = expected > 0 && received >= expected;
    if (m_lastNotified < 0 || finished || now - m_lastNotified >= notifyMilliseconds) {
        m_lastNotified = now;
        Q_EMIT progressChanged();
    }
}

void Transfer::sample(qint64 now) {
    const qint64 elapsed = now - m_windowStart;
    if (elapsed < windowMilliseconds)
        return;
    const double windowRate = double(m_windowBytes) * 1000.0 / double(elapsed);
    m_rate = m_rate <= 0 ? windowRate : smoothing * windowRate + (1 - smoothing) * m_rate;
    m_windowStart = now;
    m_windowBytes = 0;
}

void Transfer::setCancellable(bool cancellable) {
    if (m_cancellable == cancellable)
        return;
    m_cancellable = cancellable;
    Q_EMIT cancellableChanged();
}

void Transfer::cancel() {
    if (!cancellable())
        return;
    m_cancellation->cancel();
    Q_EMIT cancellableChanged();
}
