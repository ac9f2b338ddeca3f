#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace tapekeep {

// The kinds of file a search of a backup version may be narrowed to, in the order the screen offers
// them.
enum class BrowseSearchFilter {
    all,
    songs,
    instruments,
    samples,
    themes,
    scales,
    bundles,
    renders,
    unused,
    other
};

inline constexpr std::array<BrowseSearchFilter, 10> allBrowseSearchFilters = {
    BrowseSearchFilter::all,     BrowseSearchFilter::songs,   BrowseSearchFilter::instruments,
    BrowseSearchFilter::samples, BrowseSearchFilter::themes,  BrowseSearchFilter::scales,
    BrowseSearchFilter::bundles, BrowseSearchFilter::renders, BrowseSearchFilter::unused,
    BrowseSearchFilter::other};

// "all", "songs", … as stored and typed on the command line.
[[nodiscard]] std::string rawValue(BrowseSearchFilter filter);
// What the screen's texts call the files of the filter: "files", "unused samples", "other files", …
[[nodiscard]] std::string noun(BrowseSearchFilter filter);
// The filter with exactly that raw value, if any.
[[nodiscard]] std::optional<BrowseSearchFilter> browseSearchFilterNamed(std::string_view raw);

}  // namespace tapekeep
