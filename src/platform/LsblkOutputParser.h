#pragma once

#include <string_view>

#include "core/DiskInfo.h"

namespace tapekeep::LsblkOutputParser {

// Reads the output of "lsblk --json -o UUID,RM,HOTPLUG,TYPE,TRAN <device>". The first listed
// device is the one asked about (a whole disk lists its partitions after it). Its uuid is empty
// when lsblk printed null, as it does without udev. The disk is internal unless it is removable,
// hot-plugged, on USB, or a loop device. Flags may be JSON booleans or, from older lsblk, the
// strings "0" and "1". Throws DiskIdentityError when the text is not such a listing.
DiskInfo parse(std::string_view json);

}  // namespace tapekeep::LsblkOutputParser
