#pragma once

#include <cerrno>

namespace tapekeep {

// Makes a system call again for as long as it fails with EINTR, and returns its first other result;
// after a failure errno still holds the call's own error. For calls that return a negative number
// on failure. Never for close(), whose descriptor is gone after EINTR. Any thread.
template <typename Call>
auto retryingInterrupts(Call call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

}  // namespace tapekeep
