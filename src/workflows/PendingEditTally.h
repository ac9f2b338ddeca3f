#pragma once

#include <map>
#include <string>
#include <vector>

#include "edits/EditEntry.h"

namespace tapekeep {

// The pending edits of the backup sets as the Browse tab counts them beside each set and version.
// Keys are the folder names of the sets and of the versions the edits' samples were taken from.
// A set or version without pending edits has no entry.
struct PendingEditTally {
    std::map<std::string, int> perSet;
    std::map<std::string, std::map<std::string, int>> perVersion;
    // The card paths of the samples with a pending edit, each once, in the edits' order.
    std::map<std::string, std::map<std::string, std::vector<std::string>>> filesPerVersion;

    // From each set's pending edits, keyed by the set's folder name.
    static PendingEditTally of(const std::map<std::string, std::vector<EditEntry>>& pendingPerSet);

    bool operator==(const PendingEditTally&) const = default;
};

}  // namespace tapekeep
