#include "platform/VolumeEjector.h"

#include <string>
#include <string_view>
#include <vector>

#include "core/Cancelled.h"
#include "core/Log.h"
#include "core/Utf8.h"
#include "platform/EjectError.h"
#include "platform/MountTable.h"
#include "platform/ProcessRunner.h"
#include "platform/SystemTools.h"

namespace tapekeep::VolumeEjector {
namespace {

const Log& ejectorLog() {
    static const Log instance("VolumeEjector");
    return instance;
}

// "/media/CARD/" and "/media/CARD" name the same mount point.
std::filesystem::path withoutTrailingSeparator(const std::filesystem::path& path) {
    std::filesystem::path normal = path.lexically_normal();
    if (!normal.has_filename() && normal.has_relative_path()) normal = normal.parent_path();
    return normal;
}

// The mount at exactly that path, the latest where several are stacked there; not one that merely holds it.
MountTable::Entry mountAt(const std::filesystem::path& mountPoint) {
    const MountTable table = MountTable::readLive();
    const MountTable::Entry* mount = table.mountContaining(mountPoint);
    if (mount == nullptr || mount->mountPoint != withoutTrailingSeparator(mountPoint))
        throw EjectError::notMounted(mountPoint);
    return *mount;
}

std::string failureText(const std::string& executable, const ProcessResult& result) {
    std::string text(trimmedAsciiWhitespace(result.output));
    if (!text.empty()) return text;
    return std::filesystem::path(executable).filename().string() + " exited with status " +
           std::to_string(result.status) + ".";
}

void runTool(const std::string& executable, const std::vector<std::string>& arguments,
             std::stop_token token) {
    throwIfCancelled(token);
    const ProcessResult result = ProcessRunner::shared().run(executable, arguments, {}, token);
    if (result.status != 0) throw EjectError::toolFailed(failureText(executable, result));
}

std::string fusermountPath() {
    if (auto path = SystemTools::find("fusermount")) return *path;
    if (auto path = SystemTools::find("fusermount3")) return *path;
    return SystemTools::pathOf("fusermount");
}

void ejectWithUdisks(const std::string& udisksctl, const std::string& device, std::stop_token token) {
    runTool(udisksctl, {"unmount", "--block-device", device}, token);
    try {
        runTool(udisksctl, {"power-off", "--block-device", device}, token);
    } catch (const EjectError& error) {
        ejectorLog().info("Unmounted " + device + " but did not power it off: " + error.what());
    }
}

}  // namespace

void ejectVolume(const std::filesystem::path& mountPoint, std::stop_token token) {
    throwIfCancelled(token);
    const MountTable::Entry mount = mountAt(mountPoint);
    const std::string point = mount.mountPoint.string();
    if (mount.fileSystemType.starts_with("fuse")) return runTool(fusermountPath(), {"-u", point}, token);
    const auto udisksctl = SystemTools::find("udisksctl");
    if (udisksctl && mount.source.starts_with("/dev/"))
        return ejectWithUdisks(*udisksctl, mount.source, token);
    runTool(SystemTools::pathOf("umount"), {point}, token);
}

}  // namespace tapekeep::VolumeEjector
