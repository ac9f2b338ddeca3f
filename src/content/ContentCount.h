#pragma once

#include <string>
#include <vector>

namespace tapekeep {

// One row of what a card or version holds, such as ("Wavs", 120).
struct ContentCount {
    std::string label;
    int count = 0;

    friend bool operator==(const ContentCount&, const ContentCount&) = default;
};

// A content summary: its rows in the fixed order Songs, Instruments, Wavs, Themes, each present
// only when it counts something.
using ContentCounts = std::vector<ContentCount>;

}  // namespace tapekeep
