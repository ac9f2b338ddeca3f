#include "content/BrowseSearchFilter.h"

#include <algorithm>

namespace tapekeep {

std::string rawValue(BrowseSearchFilter filter) {
    switch (filter) {
        case BrowseSearchFilter::all:
            return "all";
        case BrowseSearchFilter::songs:
            return "songs";
        case BrowseSearchFilter::instruments:
            return "instruments";
        case BrowseSearchFilter::samples:
            return "samples";
        case BrowseSearchFilter::themes:
            return "themes";
        case BrowseSearchFilter::scales:
            return "scales";
        case BrowseSearchFilter::bundles:
            return "bundles";
        case BrowseSearchFilter::renders:
            return "renders";
        case BrowseSearchFilter::unused:
            return "unused";
        case BrowseSearchFilter::other:
            return "other";
    }
    return "all";
}

std::string noun(BrowseSearchFilter filter) {
    switch (filter) {
        case BrowseSearchFilter::all:
            return "files";
        case BrowseSearchFilter::unused:
            return "unused samples";
        case BrowseSearchFilter::other:
            return "other files";
        default:
            return rawValue(filter);
    }
}

std::optional<BrowseSearchFilter> browseSearchFilterNamed(std::string_view raw) {
    const auto found = std::find_if(allBrowseSearchFilters.begin(), allBrowseSearchFilters.end(),
                                    [&](BrowseSearchFilter filter) { return rawValue(filter) == raw; });
    if (found == allBrowseSearchFilters.end()) return std::nullopt;
    return *found;
}

}  // namespace tapekeep
