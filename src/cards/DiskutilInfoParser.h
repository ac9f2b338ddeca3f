#pragma once

#include <string_view>

#include "core/DiskInfo.h"

namespace tapekeep::DiskutilInfoParser {

// Reads the output of macOS "diskutil info <path>": the first "Volume UUID:" line with a value
// gives the uuid, kept as printed; any "Device Location" line that mentions "internal" in any case
// marks the disk internal. Lines are split at "\n" only.
DiskInfo parse(std::string_view output);

}  // namespace tapekeep::DiskutilInfoParser
