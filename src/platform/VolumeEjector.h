#pragma once

#include <filesystem>
#include <stop_token>

namespace tapekeep::VolumeEjector {

// Unmounts the volume mounted at mountPoint, and powers its drive off where the system can:
// - a FUSE mount: "fusermount -u <mount point>" ("fusermount3" where only that is installed);
// - a block device, where udisks is installed: "udisksctl unmount --block-device <device>", then
//   "udisksctl power-off --block-device <device>", whose failure is only logged, since the volume is
//   already unmounted (a loop device, for one, has no drive to power off);
// - otherwise: "umount <mount point>".
//
// Blocks its thread (any thread) for up to two processes; cancellation kills the running one and throws
// Cancelled. Throws EjectError when nothing is mounted at exactly that path (notMounted) or a tool ends
// with a failure (toolFailed, with the tool's own words), PosixError when the mount table cannot be
// read or a tool cannot be started.
void ejectVolume(const std::filesystem::path& mountPoint, std::stop_token token);

}  // namespace tapekeep::VolumeEjector
