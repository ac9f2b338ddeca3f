#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tapekeep {

// One file or folder of an open backup version, as the browser and its search see it.
struct FileNode {
    std::string id;  // fresh per load
    std::filesystem::path url;
    std::string name;  // last path component
    bool isDirectory = false;
    std::optional<std::uint64_t> fileSize;  // absent for a folder
    // Present for a folder. Shared and never changed after the load, so that a copy of the tree (a
    // search runs over one) or of a folder hit costs no walk of what lies below.
    std::shared_ptr<const std::vector<FileNode>> children;
    bool isSelected = false;
};

}  // namespace tapekeep
