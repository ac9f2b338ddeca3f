#include "M8Files.h"

namespace tapekeep::test {

std::string songWithSamples(const std::vector<std::string>& samplePaths) {
    constexpr std::size_t table = 80446, stride = 215, pathOffset = 87;
    std::string bytes(table + 128 * stride, '\0');
    bytes.replace(0, 12, std::string("M8VERSION\0\x01\x04", 12));
    for (std::size_t slot = 0; slot < 128; ++slot) bytes[table + slot * stride] = '\xFF';
    for (std::size_t slot = 0; slot < samplePaths.size(); ++slot) {
        bytes[table + slot * stride] = 2;
        bytes.replace(table + slot * stride + pathOffset, samplePaths[slot].size(), samplePaths[slot]);
    }
    return bytes;
}

}  // namespace tapekeep::test
