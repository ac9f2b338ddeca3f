#include "platform/UdevBlockDevice.h"

#include <libudev.h>

#include <memory>
#include <string_view>

namespace tapekeep::UdevBlockDevice {
namespace {

struct UdevUnref {
    void operator()(udev* context) const { udev_unref(context); }
    void operator()(udev_device* device) const { udev_device_unref(device); }
};
using Udev = std::unique_ptr<udev, UdevUnref>;
using UdevDevice = std::unique_ptr<udev_device, UdevUnref>;

std::string_view orEmpty(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

std::string_view attribute(udev_device* device, const char* name) {
    return orEmpty(udev_device_get_sysattr_value(device, name));
}

// A USB stick or card reader is on the usb subsystem somewhere above the disk; a hot-pluggable
// bus (a PCI card reader, say) marks the device it hangs from "removable" rather than "fixed".
bool hangsFromAHotPluggableBus(udev_device* disk) {
    for (udev_device* parent = udev_device_get_parent(disk); parent != nullptr;
         parent = udev_device_get_parent(parent)) {
        if (orEmpty(udev_device_get_subsystem(parent)) == "usb") return true;
        if (attribute(parent, "removable") == "removable") return true;
    }
    return false;
}

bool isExternal(udev_device* device) {
    if (orEmpty(udev_device_get_sysname(device)).starts_with("loop")) return true;
    udev_device* disk = device;
    if (orEmpty(udev_device_get_devtype(device)) == "partition")
        if (udev_device* parent = udev_device_get_parent_with_subsystem_devtype(device, "block", "disk"))
            disk = parent;  // owned by device
    if (attribute(disk, "removable") == "1") return true;
    if (orEmpty(udev_device_get_property_value(device, "ID_BUS")) == "usb") return true;
    return hangsFromAHotPluggableBus(disk);
}

}  // namespace

std::optional<DiskInfo> diskInfo(dev_t deviceNumber) {
    const Udev context(udev_new());
    if (!context) return std::nullopt;
    const UdevDevice device(udev_device_new_from_devnum(context.get(), 'b', deviceNumber));
    if (!device) return std::nullopt;
    return DiskInfo{std::string(orEmpty(udev_device_get_property_value(device.get(), "ID_FS_UUID"))),
                    !isExternal(device.get())};
}

}  // namespace tapekeep::UdevBlockDevice
