#pragma once

#include <optional>
#include <string>

namespace tapekeep::BlkidProbe {

// The UUID of the file system on the device, read from its superblock in-process, exactly as
// "blkid -o export" prints it; empty when the file system has none. Nothing when the device cannot
// be opened or probed (reading a disk usually needs privileges).
std::optional<std::string> fileSystemUuid(const std::string& device);

}  // namespace tapekeep::BlkidProbe
