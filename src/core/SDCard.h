#pragma once

#include <filesystem>
#include <string>

namespace tapekeep {

// One detected card volume. diskUtilUUID is its only identity: mount path and name may change.
struct SDCard {
    std::filesystem::path mountPath;
    std::string volumeName;
    std::string diskUtilUUID;

    bool operator==(const SDCard&) const = default;
};

}  // namespace tapekeep
