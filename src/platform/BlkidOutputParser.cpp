#include "platform/BlkidOutputParser.h"

#include <algorithm>

namespace tapekeep::BlkidOutputParser {
namespace {

constexpr std::string_view uuidKey = "UUID=";

// blkid escapes shell-special characters in values with a backslash.
std::string withoutEscapes(std::string_view value) {
    std::string plain;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '\\' && i + 1 < value.size()) ++i;
        plain += value[i];
    }
    return plain;
}

}  // namespace

std::string uuid(std::string_view exportOutput) {
    std::size_t start = 0;
    while (start < exportOutput.size()) {
        const std::size_t end = std::min(exportOutput.find('\n', start), exportOutput.size());
        std::string_view line = exportOutput.substr(start, end - start);
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.starts_with(uuidKey)) return withoutEscapes(line.substr(uuidKey.size()));
        start = end + 1;
    }
    return {};
}

}  // namespace tapekeep::BlkidOutputParser
