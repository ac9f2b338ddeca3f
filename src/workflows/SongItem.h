#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tapekeep {

// One song of a card in the backup options, with the samples it uses.
struct SongItem {
    std::string id;
    std::string name;
    std::string relativePath;
    std::optional<std::int64_t> size;
    bool selected = false;
    std::vector<std::string> samplePaths;

    bool operator==(const SongItem&) const = default;
};

}  // namespace tapekeep
