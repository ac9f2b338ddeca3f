#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tapekeep {

// One top-level folder of a card in the backup options, chosen or not.
struct FolderSelection {
    std::string id;
    std::string name;
    std::optional<std::int64_t> size;
    bool selected = true;
    std::optional<std::string> relativePath;
    bool locked = false;

    bool operator==(const FolderSelection&) const = default;
};

}  // namespace tapekeep
