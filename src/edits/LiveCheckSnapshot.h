#pragma once

#include <functional>
#include <set>
#include <string>

namespace tapekeep {

// What an apply run needs to know of the live card, as the last scan found it.
struct LiveCheckSnapshot {
    // Whether the card holds a file at a normalised card path, letter case ignored.
    std::function<bool(const std::string& normalizedPath)> targetExists = [](const std::string&) {
        return false;
    };
    std::set<std::string> missingSampleIDs;  // edits whose source sample is not on the card
};

}  // namespace tapekeep
