#include "content/BrowseSearchFilter.h"

#include <algorithm>
#include <cstddef>

namespace tapekeep {

namespace {

struct FilterNames {
    const char* raw;
    const char* noun;
};

// In the order of the enumeration.
constexpr FilterNames filterNames[] = {
    {"all", "files"},        {"songs", "songs"},     {"instruments", "instruments"},
    {"samples", "samples"},  {"themes", "themes"},   {"scales", "scales"},
    {"bundles", "bundles"},  {"renders", "renders"}, {"unused", "unused samples"},
    {"other", "other files"}};

const FilterNames& namesOf(BrowseSearchFilter filter) {
    return filterNames[static_cast<std::size_t>(filter)];
}

}  // namespace

std::string rawValue(BrowseSearchFilter filter) {
    return namesOf(filter).raw;
}

std::string noun(BrowseSearchFilter filter) {
    return namesOf(filter).noun;
}

std::optional<BrowseSearchFilter> browseSearchFilterNamed(std::string_view raw) {
    const auto found = std::find_if(allBrowseSearchFilters.begin(), allBrowseSearchFilters.end(),
                                    [&](BrowseSearchFilter filter) { return rawValue(filter) == raw; });
    if (found == allBrowseSearchFilters.end()) return std::nullopt;
    return *found;
}

}  // namespace tapekeep
