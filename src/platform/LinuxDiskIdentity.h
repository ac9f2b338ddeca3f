#pragma once

#include <filesystem>
#include <stop_token>

#include "core/DiskInfo.h"

namespace tapekeep::LinuxDiskIdentity {

// The disk behind the volume mounted at mountPoint, as the volume scanner needs it: the source
// device of the mount that holds the path, then udev's record of it and sysfs; when udev has no
// UUID (no udev daemon), the file system's superblock probed through libblkid. Only when udev
// cannot find the device is "lsblk --json -o UUID,RM,HOTPLUG,TYPE,TRAN <device>" run, and
// "blkid -o export <device>" only when the probe cannot read the device. A mount whose source is
// not a block device (a virtual or FUSE file system) has no UUID. A loop device (an SD card image)
// is never internal.
//
// Blocks its thread while it reads the device, or for up to two processes; cancellation kills a
// running one and throws Cancelled. Throws ProcessExitError for a non-zero exit, PosixError when the mount
// table cannot be read or a tool cannot be started, DiskIdentityError for output that cannot be read.
DiskInfo diskInfo(const std::filesystem::path& mountPoint, std::stop_token token);

}  // namespace tapekeep::LinuxDiskIdentity
