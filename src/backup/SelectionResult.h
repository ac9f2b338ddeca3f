#pragma once

#include <string>
#include <vector>

namespace tapekeep {

// What a selective backup copies file by file, and the sample references it could not find.
struct SelectionResult {
    std::vector<std::string> files;    // card-relative, sorted: the chosen songs and the samples they use
    std::vector<std::string> missing;  // sample references with no file on the card, sorted
    std::vector<std::string> throughLinks;  // sample references that run through a symbolic link, sorted
};

}  // namespace tapekeep
