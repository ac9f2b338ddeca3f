#pragma once

#include <sys/types.h>

#include <optional>

#include "core/DiskInfo.h"

namespace tapekeep::UdevBlockDevice {

// What udev knows of the block device with that device number, read in-process: the file system
// UUID from udev's database, and whether the disk is internal, from sysfs. The UUID is empty when
// udev has recorded none, as where no udev daemon runs (a container); sysfs still answers then.
// The disk is internal unless it is removable, hot-plugged, on USB, or a loop device (an SD card
// image); a partition is judged by its disk. Nothing when udev cannot find the device.
std::optional<DiskInfo> diskInfo(dev_t deviceNumber);

}  // namespace tapekeep::UdevBlockDevice
