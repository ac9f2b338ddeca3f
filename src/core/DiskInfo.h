#pragma once

#include <string>

namespace tapekeep {

// What the system reports about the disk behind a mounted volume.
struct DiskInfo {
    std::string uuid;         // the volume UUID exactly as printed; empty when none was reported
    bool isInternal = false;  // a built-in disk, never an M8 card

    bool operator==(const DiskInfo&) const = default;
};

}  // namespace tapekeep
