#pragma once

#include "foundation/LaunchError.h"

#include <QCoroSignal>
#include <QCoroTask>
#include <QObject>
#include <QTest>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

// Emits once when a scripted call is completed.
class CallCompletion : public QObject {
    Q_OBJECT
Q_SIGNALS:
    void completed();
};

// The calls of one operation of a service double. Each call either answers at once (answerWith),
// or waits until the test completes it (holdCalls, then complete or fail), so that a test decides
// exactly where the store's flows interleave. A call the test did not prepare for fails the test.
template <typename T>
class ScriptedCalls {
public:
    explicit ScriptedCalls(const char* name)
        : m_name(name) {}

    void answerWith(std::function<T()> answer) {
        m_answer = std::move(answer);
        m_holds = false;
    }
    void answerWith(T value) {
        answerWith([value] { return value; });
    }
    // Any exception: a LaunchError, or one that nobody planned for.
    template <typename E>
    void failWith(E error) {
        answerWith([error]() -> T { throw error; });
    }
    void holdCalls() {
        m_holds = true;
        m_answer = nullptr;
    }

    int callCount() const { return m_callCount; }
    int pendingCount() const { return int(m_pending.size()); }

    // Completes the oldest waiting call, or the one that began last, overtaking the older ones.
    void complete(T value) {
        finish([value] { return value; });
    }
    void completeNewest(T value) {
        finish([value] { return value; }, true);
    }
    template <typename E>
    void fail(E error) {
        finish([error]() -> T { throw error; });
    }

    QCoro::Task<T> call() {
        ++m_callCount;
        if (m_answer)
            co_return m_answer();
        if (!m_holds) {
            failTest("unexpected call of");
            throw LaunchError::url(LaunchError::unknown);
        }
        auto pending = std::make_shared<Pending>();
        m_pending.push_back(pending);
        co_await qCoro(&pending->completion, &CallCompletion::completed);
        pending->resumed = true;
        co_return pending->result();
    }

private:
    struct Pending {
        CallCompletion completion;
        std::function<T()> result;
        bool resumed = false;
    };

    void failTest(const char* what) const {
        QTest::qFail(
            qPrintable(QStringLiteral("%1 %2").arg(QLatin1String(what), QLatin1String(m_name))),
            __FILE__, __LINE__);
    }

    void finish(std::function<T()> result, bool newest = false) {
        if (m_pending.empty())
            return failTest("no waiting call of");
        auto pending = newest ? m_pending.back() : m_pending.front();
        if (newest)
            m_pending.pop_back();
        else
            m_pending.pop_front();
        pending->result = std::move(result);
        Q_EMIT pending->completion.completed();
        // The awaiter resumes through a queued connection: run the loop until the flow has taken
        // the answer, so that each completion is one deterministic step of the test.
        if (!QTest::qWaitFor([&] { return pending->resumed; }, 5000))
            QTest::qFail("a completed call was never resumed", __FILE__, __LINE__);
    }

    const char* m_name;
    std::function<T()> m_answer;
    bool m_holds = false;
    int m_callCount = 0;
    std::deque<std::shared_ptr<Pending>> m_pending;
};

// The same for operations without a result.
struct Done {};
