#pragma once

#include <vector>

#include "content/BrowseSearchHit.h"

namespace tapekeep {

// The hits a search shows, best first, and whether more were found than are shown.
struct BrowseSearchResult {
    std::vector<BrowseSearchHit> hits;
    bool truncated = false;
};

}  // namespace tapekeep
