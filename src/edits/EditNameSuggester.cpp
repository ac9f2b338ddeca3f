#include "edits/EditNameSuggester.h"

#include <unordered_set>

#include "content/SampleReferences.h"
#include "edits/EditNameSuggesterError.h"
#include "edits/EditPathValidator.h"

namespace tapekeep::EditNameSuggester {
namespace {

constexpr int lastVariant = 99;

// The source's folder without a trailing slash ("" for the card's root) and its name without the
// extension.
struct SourceName {
    std::string parent;
    std::string stem;
};

SourceName sourceName(const std::string& sourcePath) {
    const auto normal = EditPathValidator::normalizePath(sourcePath);
    const auto slash = normal.rfind('/');
    SourceName name{normal.substr(0, slash), normal.substr(slash + 1)};
    const auto dot = name.stem.rfind('.');
    if (dot != std::string::npos && dot > 0) name.stem.resize(dot);
    return name;
}

}  // namespace

std::string suggestTrimName(const std::string& sourcePath, const std::vector<std::string>& pathsInUse) {
    std::unordered_set<std::string> taken;
    for (const auto& path : pathsInUse) taken.insert(BrowseFileService::indexKey(path));
    const auto source = sourceName(sourcePath);
    const auto isFree = [&](const std::string& candidate) {
        return !taken.contains(BrowseFileService::indexKey(candidate));
    };
    auto candidate = EditPathValidator::normalizePath(source.parent + "/" + source.stem + "_trim.wav");
    if (isFree(candidate)) return candidate;
    for (int variant = 2; variant <= lastVariant; ++variant) {
        candidate = EditPathValidator::normalizePath(source.parent + "/" + source.stem + "_trim_" +
                                                     std::to_string(variant) + ".wav");
        if (isFree(candidate)) return candidate;
    }
    throw EditNameSuggesterError::tooManyVariants();
}

}  // namespace tapekeep::EditNameSuggester
