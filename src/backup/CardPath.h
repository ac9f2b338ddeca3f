#pragma once

#include <string>

namespace tapekeep {

// A card-relative path as the card itself spells it, or why the card has no such entry.
struct CardPath {
    enum class Status { found, missing, throughSymbolicLink };

    Status status = Status::missing;
    std::string spelling;      // when found: each component as its directory entry names it
    bool isDirectory = false;  // when found
};

}  // namespace tapekeep
