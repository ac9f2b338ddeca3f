#include "workflows/PendingEditTally.h"

#include <algorithm>

namespace tapekeep {

PendingEditTally PendingEditTally::of(const std::map<std::string, std::vector<EditEntry>>& pendingPerSet) {
    PendingEditTally tally;
    for (const auto& [set, edits] : pendingPerSet) {
        for (const auto& edit : edits) {
            if (!edit.isPending()) continue;
            ++tally.perSet[set];
            ++tally.perVersion[set][edit.sourceVersionFolder];
            auto& files = tally.filesPerVersion[set][edit.sourceVersionFolder];
            if (std::find(files.begin(), files.end(), edit.sourceRelativePath) == files.end())
                files.push_back(edit.sourceRelativePath);
        }
    }
    return tally;
}

}  // namespace tapekeep
