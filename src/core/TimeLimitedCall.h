#pragma once

#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <type_traits>

#include "core/Cancelled.h"

namespace tapekeep {

namespace detail {

// Where a time-limited call leaves its answer; shared by the caller and the call's thread, which
// may outlive the caller. Fields below the mutex are guarded by it.
template <typename Result>
struct TimeLimitedAnswer {
    std::mutex mutex;
    std::condition_variable_any arrived;
    bool done = false;
    std::optional<Result> result;
    std::exception_ptr error;
};

}  // namespace detail

// Runs work on a thread of its own and waits for its answer no longer than the limit. Returns the
// answer, or nothing when the limit passed first; rethrows what the work threw; throws Cancelled as
// soon as the token asks, without waiting for the work.
//
// For calls that may block in the kernel for good, such as a stat on a FUSE mount whose daemon
// stopped answering: such a thread cannot be interrupted, so work that overruns is left on its
// detached thread, which nothing joins. The work must therefore own everything it touches (capture
// by value). Throws std::system_error when no thread can be started. Any thread.
template <typename Work>
std::optional<std::invoke_result_t<Work&>> callWithTimeLimit(Work work, std::chrono::nanoseconds limit,
                                                             std::stop_token token = {}) {
    using Result = std::invoke_result_t<Work&>;
    auto answer = std::make_shared<detail::TimeLimitedAnswer<Result>>();
    std::thread([answer, work = std::move(work)]() mutable {
        std::optional<Result> result;
        std::exception_ptr error;
        try {
            result.emplace(work());
        } catch (...) {
            error = std::current_exception();
        }
        std::lock_guard lock(answer->mutex);
        answer->result = std::move(result);
        answer->error = error;
        answer->done = true;
        answer->arrived.notify_all();
    }).detach();

    std::unique_lock lock(answer->mutex);
    if (!answer->arrived.wait_for(lock, token, limit, [&] { return answer->done; })) {
        throwIfCancelled(token);
        return std::nullopt;
    }
    if (answer->error) std::rethrow_exception(answer->error);
    return std::move(answer->result);
}

}  // namespace tapekeep
