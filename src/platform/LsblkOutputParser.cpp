#include "platform/LsblkOutputParser.h"

#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/DiskIdentityError.h"

namespace tapekeep::LsblkOutputParser {
namespace {

using nlohmann::json;

// lsblk 2.33 and later print booleans; older versions print every column as a string.
bool flag(const json& device, const char* key) {
    const auto value = device.find(key);
    if (value == device.end()) return false;
    if (value->is_boolean()) return value->get<bool>();
    if (value->is_number_integer()) return value->get<int>() != 0;
    if (value->is_string()) {
        const auto text = value->get<std::string>();
        return text == "1" || text == "true";
    }
    return false;
}

std::string text(const json& device, const char* key) {
    const auto value = device.find(key);
    return value != device.end() && value->is_string() ? value->get<std::string>() : std::string();
}

const json& firstDevice(const json& listing) {
    if (!listing.is_object()) throw DiskIdentityError::unreadableLsblkOutput("not a JSON object");
    const auto devices = listing.find("blockdevices");
    if (devices == listing.end() || !devices->is_array())
        throw DiskIdentityError::unreadableLsblkOutput("no \"blockdevices\" list");
    if (devices->empty() || !devices->front().is_object())
        throw DiskIdentityError::unreadableLsblkOutput("no device listed");
    return devices->front();
}

// The runner hands over standard error after standard output, so a warning may follow the JSON
// document; reading it as a stream stops at the document's end.
json listingIn(std::string_view output) {
    std::istringstream stream{std::string(output)};
    json listing;
    try {
        stream >> listing;
    } catch (const json::exception& error) {
        throw DiskIdentityError::unreadableLsblkOutput(error.what());
    }
    return listing;
}

}  // namespace

DiskInfo parse(std::string_view output) {
    const json listing = listingIn(output);
    const json& device = firstDevice(listing);
    const bool isExternal = flag(device, "rm") || flag(device, "hotplug") || text(device, "tran") == "usb" ||
                            text(device, "type") == "loop";
    return DiskInfo{text(device, "uuid"), !isExternal};
}

}  // namespace tapekeep::LsblkOutputParser
