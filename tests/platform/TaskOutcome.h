#pragma once

#include "core/LaunchError.h"

#include <QCoroTask>
#include <optional>

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
