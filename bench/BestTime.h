#pragma once

#include <algorithm>
#include <chrono>

namespace tapekeep::bench {

// The shortest of `runs` runs of the work, in seconds: the figure least disturbed by the machine.
template <typename Work>
double bestSeconds(int runs, Work work) {
    double best = 1e9;
    for (int run = 0; run < runs; ++run) {
        const auto start = std::chrono::steady_clock::now();
        work();
        best =
            std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

}  // namespace tapekeep::bench
