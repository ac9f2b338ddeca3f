#include "backup/CardSpelling.h"

#include <algorithm>

#include "content/SampleReferences.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

std::vector<std::string_view> componentsOf(std::string_view path) {
    std::vector<std::string_view> components;
    while (!path.empty()) {
        const auto slash = path.find('/');
        if (const auto component = path.substr(0, slash); !component.empty()) components.push_back(component);
        path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    }
    return components;
}

}  // namespace

CardPath CardSpelling::locate(std::string_view relativePath) {
    const auto components = componentsOf(relativePath);
    if (components.empty()) return {};
    std::string spelling;
    fs::file_status status;
    for (std::size_t index = 0; index < components.size(); ++index) {
        const std::string* name = matchingName(spelling, components[index]);
        if (name == nullptr) return {};
        spelling += (spelling.empty() ? "" : "/") + *name;
        std::error_code error;
        status = fs::symlink_status(card_ / spelling, error);
        if (error) return {};
        if (fs::is_symlink(status)) return {CardPath::Status::throughSymbolicLink, spelling, false};
        if (index + 1 < components.size() && !fs::is_directory(status)) return {};
    }
    return {CardPath::Status::found, spelling, fs::is_directory(status)};
}

const std::vector<std::string>& CardSpelling::namesIn(const std::string& relativeFolder) {
    const auto listed = listings_.find(relativeFolder);
    if (listed != listings_.end()) return listed->second;
    std::vector<std::string> names;
    std::error_code error;  // a folder that cannot be listed holds nothing the selection can use
    for (fs::directory_iterator entries(card_ / relativeFolder, error), end; !error && entries != end;
         entries.increment(error))
        names.push_back(entries->path().filename().string());
    return listings_.emplace(relativeFolder, std::move(names)).first->second;
}

// The entry spelled exactly so, else the first that differs from it in letter case only.
const std::string* CardSpelling::matchingName(const std::string& relativeFolder, std::string_view name) {
    const auto& names = namesIn(relativeFolder);
    const auto exact = std::find(names.begin(), names.end(), name);
    if (exact != names.end()) return &*exact;
    const std::string key = BrowseFileService::indexKey(name);
    const auto folded = std::find_if(names.begin(), names.end(), [&key](const std::string& candidate) {
        return BrowseFileService::indexKey(candidate) == key;
    });
    return folded == names.end() ? nullptr : &*folded;
}

}  // namespace tapekeep
