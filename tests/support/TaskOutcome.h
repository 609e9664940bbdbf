#pragma once

#include "foundation/LaunchError.h"

#include <QCoroTask>
#include <QTest>
#include <optional>
#include <type_traits>

// What an awaited task ended with, for tests that look at a task's value or error afterwards.
template <typename T>
struct TaskOutcome {
    bool finished = false;
    std::optional<T> value;
    std::optional<LaunchError> error;
};

template <typename T>
QCoro::Task<> recordOutcome(QCoro::Task<T> task, TaskOutcome<T>& outcome) {
    try {
        outcome.value = co_await std::move(task);
    } catch (const LaunchError& error) {
        outcome.error = error;
    }
    outcome.finished = true;
}

inline QCoro::Task<> recordOutcome(QCoro::Task<> task, TaskOutcome<bool>& outcome) {
    try {
        co_await std::move(task);
        outcome.value = true;
    } catch (const LaunchError& error) {
        outcome.error = error;
    }
    outcome.finished = true;
}

// Runs a task to its end and hands back what it ended with; a task that hangs ends the test run.
template <typename T>
auto outcomeOf(QCoro::Task<T> task, int milliseconds = 20000) {
    TaskOutcome<std::conditional_t<std::is_void_v<T>, bool, T>> outcome;
    auto recording = recordOutcome(std::move(task), outcome);
    if (!QTest::qWaitFor([&] { return recording.isReady(); }, milliseconds))
        qFatal("a task did not finish in time");
    return outcome;
}
