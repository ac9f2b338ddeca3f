#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tapekeep {

// One entry inside a top-level folder of a version, chosen or not for a restore.
struct RestoreSubpathSelection {
    std::string id;
    std::string name;
    std::string relativePath;  // from the version's root
    bool isDirectory = false;
    std::optional<std::int64_t> size;
    bool selected = true;

    bool operator==(const RestoreSubpathSelection&) const = default;
};

}  // namespace tapekeep
