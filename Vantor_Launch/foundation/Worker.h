#pragma once

#include <QCoroFuture>
#include <QCoroTask>
#include <QtConcurrent/QtConcurrentRun>
#include <exception>
#include <optional>
#include <type_traits>

// The one way the launcher runs blocking work (files, hashing, unpacking) off the main thread:
// the coroutine awaits it and gets its result back, or its exception rethrown as it was.
namespace Worker {

// On `pool`'s threads: a pool of its own for work that waits long, or runs at a low priority.
template <typename Work>
QCoro::Task<std::invoke_result_t<Work>> run(QThreadPool* pool, Work work) {
    using Result = std::invoke_result_t<Work>;
    struct Outcome {
        std::optional<Result> value;
        std::exception_ptr error;
    };
    const auto attempt = [](Work work) {
        Outcome outcome;
        try {
            outcome.value = work();
        } catch (...) {
            outcome.error = std::current_exception();
        }
        return outcome;
    };
    Outcome outcome = co_await QtConcurrent::run(pool, attempt, std::move(work));
    if (outcome.error)
        std::rethrow_exception(outcome.error);
    co_return std::move(*outcome.value);
}

template <typename Work>
QCoro::Task<std::invoke_result_t<Work>> run(Work work) {
    return run(QThreadPool::globalInstance(), std::move(work));
}

} // namespace Worker
