#include "core/Cancelled.h"

#include <condition_variable>
#include <mutex>

namespace tapekeep {

bool sleepFor(std::chrono::milliseconds duration, const std::stop_token& token) {
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    wake.wait_for(lock, token, duration, [] { return false; });
    return !token.stop_requested();
}

bool isCancellation(const std::exception_ptr& error) {
    try {
        if (error) std::rethrow_exception(error);
    } catch (const Cancelled&) {
        return true;
    } catch (...) {
    }
    return false;
}

}  // namespace tapekeep
