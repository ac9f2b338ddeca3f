#include "content/BrowseSearch.h"

#include <algorithm>
#include <array>

#include "content/SearchFolding.h"
#include "core/Cancelled.h"
#include "core/Utf8.h"

namespace tapekeep::BrowseSearch {

namespace {

constexpr std::array<std::string_view, 8> audioExtensions = {"wav",  "aif", "aiff", "mp3",
                                                             "flac", "ogg", "m4a",  "caf"};
constexpr std::array<std::string_view, 4> m8DataExtensions = {"m8s", "m8i", "m8t", "m8n"};

bool holds(const auto& extensions, std::string_view extension) {
    return std::find(extensions.begin(), extensions.end(), extension) != extensions.end();
}

// The folded name's text after its last "."; none for a name without one, or whose only "." is its
// first character (".wav" is a hidden name, not a sound).
std::string_view extensionOf(std::string_view foldedName) {
    const auto dot = foldedName.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return {};
    return foldedName.substr(dot + 1);
}

struct Place {
    std::string folder;        // as the hit shows it
    std::string foldedFolder;  // the same, folded, for ordering
    int depth = 0;
    bool inBundles = false;
    bool inRenders = false;
};

struct Candidate {
    BrowseSearchHit hit;
    std::string foldedName;
    std::string foldedFolder;
    bool nameMatch = false;
};

bool rankedBefore(const Candidate& left, const Candidate& right) {
    if (left.nameMatch != right.nameMatch) return left.nameMatch;
    if (left.hit.node.isDirectory != right.hit.node.isDirectory) return left.hit.node.isDirectory;
    if (left.foldedName != right.foldedName) return left.foldedName < right.foldedName;
    if (left.foldedFolder != right.foldedFolder) return left.foldedFolder < right.foldedFolder;
    if (left.hit.node.name != right.hit.node.name) return left.hit.node.name < right.hit.node.name;
    return left.hit.relativeFolder < right.hit.relativeFolder;
}

std::string joined(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

class Walk {
public:
    Walk(const std::vector<std::string>& tokens, BrowseSearchFilter filter, const UnusedSampleLookup* unused,
         const std::stop_token& token)
        : tokens_(tokens), filter_(filter), unused_(unused), token_(token) {}

    void visit(const std::vector<FileNode>& nodes, const Place& place,
               const std::vector<std::string_view>& unmet) {
        for (const auto& node : nodes) {
            throwIfCancelled(token_);
            std::string foldedName = foldedForSearch(node.name);
            if (containsAll(foldedName, unmet) && passesFilter(node, foldedName, place)) {
                const bool nameMatch = unmet.size() == tokens_.size() || containsAll(foldedName, tokens_);
                found_.push_back({{node, place.folder}, foldedName, place.foldedFolder, nameMatch});
            }
            if (node.children) descend(node, foldedName, place, unmet);
        }
    }

    std::vector<Candidate>& found() { return found_; }

private:
    static bool containsAll(std::string_view name, const auto& tokens) {
        return std::all_of(tokens.begin(), tokens.end(), [&](std::string_view token) {
            return name.find(token) != std::string_view::npos;
        });
    }

    void descend(const FileNode& folder, const std::string& foldedName, const Place& place,
                 const std::vector<std::string_view>& unmet) {
        Place below{joined(place.folder, folder.name), joined(place.foldedFolder, foldedName),
                    place.depth + 1, place.inBundles, place.inRenders};
        if (place.depth == 0) {
            below.inBundles = foldedName == "bundles";
            below.inRenders = foldedName == "renders";
        }
        std::vector<std::string_view> stillUnmet;
        std::copy_if(unmet.begin(), unmet.end(), std::back_inserter(stillUnmet),
                     [&](std::string_view token) { return foldedName.find(token) == std::string::npos; });
        visit(*folder.children, below, stillUnmet);
    }

    bool passesFilter(const FileNode& node, std::string_view foldedName, const Place& place) const {
        if (filter_ == BrowseSearchFilter::all) return true;
        if (filter_ == BrowseSearchFilter::bundles)
            return node.isDirectory && place.inBundles && place.depth == 1;
        if (node.isDirectory) return false;
        const auto extension = extensionOf(foldedName);
        const bool audio = holds(audioExtensions, extension);
        switch (filter_) {
            case BrowseSearchFilter::songs:
                return extension == "m8s";
            case BrowseSearchFilter::instruments:
                return extension == "m8i";
            case BrowseSearchFilter::themes:
                return extension == "m8t";
            case BrowseSearchFilter::scales:
                return extension == "m8n";
            case BrowseSearchFilter::samples:
                return audio && !place.inRenders;
            case BrowseSearchFilter::renders:
                return audio && place.inRenders;
            case BrowseSearchFilter::unused:
                return audio && !place.inRenders && unused_ != nullptr &&
                       BrowseFileService::isUnusedSample(node.url, unused_->versionPath, unused_->index);
            case BrowseSearchFilter::other:
                return !audio && !holds(m8DataExtensions, extension) && !place.inBundles;
            default:
                return false;
        }
    }

    const std::vector<std::string>& tokens_;
    BrowseSearchFilter filter_;
    const UnusedSampleLookup* unused_;
    const std::stop_token& token_;
    std::vector<Candidate> found_;
};

BrowseSearchResult ranked(std::vector<Candidate>& found) {
    BrowseSearchResult result;
    result.truncated = found.size() > hitLimit;
    const auto shown = std::min(found.size(), hitLimit);
    std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(shown), found.end(),
                      rankedBefore);
    result.hits.reserve(shown);
    for (std::size_t at = 0; at < shown; ++at) result.hits.push_back(std::move(found[at].hit));
    return result;
}

}  // namespace

BrowseSearchResult search(const std::vector<FileNode>& roots, std::string_view query,
                          BrowseSearchFilter filter, const UnusedSampleLookup* unused,
                          std::stop_token token) {
    const auto tokens = searchTokens(query);
    if (tokens.empty() && filter == BrowseSearchFilter::all) return {};
    Walk walk(tokens, filter, unused, token);
    walk.visit(roots, Place{}, std::vector<std::string_view>(tokens.begin(), tokens.end()));
    return ranked(walk.found());
}

bool isActive(std::string_view query, BrowseSearchFilter filter) {
    return filter != BrowseSearchFilter::all || !trimmedWhitespace(query).empty();
}

}  // namespace tapekeep::BrowseSearch
