#include "cards/DiskutilInfoParser.h"

#include <algorithm>
#include <cctype>
#include <string>

#include "core/Utf8.h"

namespace tapekeep::DiskutilInfoParser {
namespace {

constexpr std::string_view volumeUuidLabel = "Volume UUID:";

// Everything after the first colon, so that a value holding a colon keeps it.
std::string volumeUuidValue(std::string_view line) {
    const std::string_view trimmed = trimmedSpacesAndTabs(line);
    if (!trimmed.starts_with(volumeUuidLabel)) return {};
    return std::string(trimmedSpacesAndTabs(trimmed.substr(trimmed.find(':') + 1)));
}

bool saysInternalLocation(std::string_view line) {
    if (line.find("Device Location") == std::string_view::npos) return false;
    std::string lowered(line);
    std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lowered.find("internal") != std::string::npos;
}

}  // namespace

DiskInfo parse(std::string_view output) {
    DiskInfo info;
    std::size_t start = 0;
    while (start <= output.size()) {
        const std::size_t end = std::min(output.find('\n', start), output.size());
        const std::string_view line = output.substr(start, end - start);
        if (info.uuid.empty()) info.uuid = volumeUuidValue(line);
        if (saysInternalLocation(line)) info.isInternal = true;
        start = end + 1;
    }
    return info;
}

}  // namespace tapekeep::DiskutilInfoParser
