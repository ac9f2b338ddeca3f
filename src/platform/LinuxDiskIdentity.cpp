#include "platform/LinuxDiskIdentity.h"

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "core/Cancelled.h"
#include "core/RetryingInterrupts.h"
#include "platform/BlkidOutputParser.h"
#include "platform/BlkidProbe.h"
#include "platform/DiskIdentityError.h"
#include "platform/LsblkOutputParser.h"
#include "platform/MountTable.h"
#include "platform/ProcessExitError.h"
#include "platform/ProcessRunner.h"
#include "platform/SystemTools.h"
#include "platform/UdevBlockDevice.h"

namespace tapekeep::LinuxDiskIdentity {
namespace {

// The device number of the block device at source; nothing for any other mount source.
std::optional<dev_t> blockDeviceNumber(const std::string& source) {
    if (!source.starts_with('/')) return std::nullopt;
    struct stat status {};
    if (retryingInterrupts([&] { return ::stat(source.c_str(), &status); }) != 0 || !S_ISBLK(status.st_mode))
        return std::nullopt;
    return status.st_rdev;
}

// "/dev/loop3" and its partitions "/dev/loop3p1"; lsblk calls only the former type "loop".
bool isLoopDevice(const std::string& device) {
    return std::filesystem::path(device).filename().string().starts_with("loop");
}

std::string outputOf(const std::string& tool, const std::vector<std::string>& arguments,
                     std::stop_token token) {
    throwIfCancelled(token);
    ProcessResult result = ProcessRunner::shared().run(SystemTools::pathOf(tool), arguments, {}, token);
    throwIfCancelled(token);
    if (result.status != 0) throw ProcessExitError(result.status, std::move(result.output));
    return std::move(result.output);
}

}  // namespace

DiskInfo diskInfo(const std::filesystem::path& mountPoint, std::stop_token token) {
    throwIfCancelled(token);
    const MountTable table = MountTable::readLive();
    const MountTable::Entry* mount = table.mountContaining(mountPoint);
    if (mount == nullptr) throw DiskIdentityError::noMount(mountPoint);
    const std::string device = mount->source;
    const auto deviceNumber = blockDeviceNumber(device);
    if (!deviceNumber) return DiskInfo{};

    // The identity is checked around every rsync pass, so the libraries answer where they can and
    // the tools, about 20 ms a process, are the last resort.
    DiskInfo info;
    if (auto known = UdevBlockDevice::diskInfo(*deviceNumber)) {
        info = *known;
    } else {
        info = LsblkOutputParser::parse(
            outputOf("lsblk", {"--json", "-o", "UUID,RM,HOTPLUG,TYPE,TRAN", device}, token));
        if (isLoopDevice(device)) info.isInternal = false;
    }
    if (info.uuid.empty()) {
        if (auto probed = BlkidProbe::fileSystemUuid(device))
            info.uuid = *probed;
        else
            info.uuid = BlkidOutputParser::uuid(outputOf("blkid", {"-o", "export", device}, token));
    }
    throwIfCancelled(token);
    return info;
}

}  // namespace tapekeep::LinuxDiskIdentity
