#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "core/Timestamp.h"

namespace tapekeep {

// One file's size and content modification time: all that a quick comparison of two trees reads.
struct ManifestEntry {
    // The time of a file whose modification time the file system does not report.
    static constexpr Clock::time_point distantPast = Clock::time_point::min();

    std::int64_t size = 0;  // bytes; 0 when the file system reports none
    Clock::time_point modified = distantPast;

    friend bool operator==(const ManifestEntry&, const ManifestEntry&) = default;
};

// From a file's path below the scanned root (no leading "/", precomposed Unicode, letter case
// kept) to its entry. Held in memory only.
using Manifest = std::unordered_map<std::string, ManifestEntry>;

}  // namespace tapekeep
