#pragma once

#include <string>

namespace tapekeep {

// Orders names as a file browser does: case-insensitive, runs of digits compared by value,
// so "Card 2" comes before "Card 10". Returns <0, 0 or >0.
int naturalCompare(const std::string& left, const std::string& right);

inline bool naturalLess(const std::string& left, const std::string& right) {
    return naturalCompare(left, right) < 0;
}

}  // namespace tapekeep
