#pragma once

#include <string>
#include <vector>

#include "QuietProcess.h"

namespace tapekeep::bench {

// Runs /usr/bin/rsync with the arguments and nothing of Tapekeep around it: the yardstick that
// Tapekeep's own runs are measured against. Returns rsync's exit status, or -1 when it did not start.
inline int runBareRsync(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {"/usr/bin/rsync"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return test::runQuietly(std::move(words));
}

}  // namespace tapekeep::bench
