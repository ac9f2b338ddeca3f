#pragma once

#include <cstddef>
#include <stop_token>
#include <string_view>
#include <vector>

#include "content/BrowseSearchFilter.h"
#include "content/BrowseSearchResult.h"
#include "content/FileNode.h"
#include "content/UnusedSampleLookup.h"

namespace tapekeep {

// The search of an open backup version by name and kind. It walks a tree already loaded and makes
// no system call, so it may run on any thread over a copy of the tree.
//
// A node is a hit when each query token is contained in its folded name or in the folded name of a
// folder on its path, and its kind passes the filter. Hits whose own name holds every token come
// first, then folders before files, then by name and by folder, each without regard to case.
// "Bundles" and "Renders" at the version's top, in any letter case, mark what lies below them.
namespace BrowseSearch {

inline constexpr std::size_t hitLimit = 500;

// Nothing is searched for an empty query with the filter `all`; with another filter an empty query
// lists every file of that kind. `unused` needs the lookup, and lists nothing without it. Throws
// Cancelled, checked at every node.
BrowseSearchResult search(const std::vector<FileNode>& roots, std::string_view query,
                          BrowseSearchFilter filter, const UnusedSampleLookup* unused = nullptr,
                          std::stop_token token = {});

// True when the search shows something for that query and filter: the filter is not `all`, or the
// query holds more than white space.
[[nodiscard]] bool isActive(std::string_view query, BrowseSearchFilter filter);

}  // namespace BrowseSearch
}  // namespace tapekeep
