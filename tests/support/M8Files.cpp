#include "M8Files.h"

#include <stdexcept>

#include "TempDir.h"

namespace tapekeep::test {
namespace {

constexpr std::size_t instrumentTable = 80446, recordStride = 215, samplePathOffset = 87,
                      samplePathWidth = 128;
constexpr char samplerType = 2, emptySlot = '\xFF';

}  // namespace

std::string deviceSongWithSamples(const std::vector<std::string>& samplePaths) {
    std::string bytes = readFile(TAPEKEEP_FIXTURES_DIR "/CMDMAPPING_4_1_beta.m8s");
    std::vector<std::size_t> free;  // the record offsets that may take a path, samplers first
    for (const char wanted : {samplerType, emptySlot})
        for (std::size_t slot = 0; slot < 128; ++slot)
            if (bytes[instrumentTable + slot * recordStride] == wanted)
                free.push_back(instrumentTable + slot * recordStride);
    if (samplePaths.size() > free.size()) throw std::invalid_argument("too many sample paths");
    for (std::size_t at = 0; at < free.size(); ++at) {
        const bool used = at < samplePaths.size();
        if (!used && bytes[free[at]] != samplerType) continue;
        bytes.replace(free[at] + samplePathOffset, samplePathWidth, samplePathWidth, '\0');
        if (!used) continue;
        bytes[free[at]] = samplerType;
        bytes.replace(free[at] + samplePathOffset, samplePaths[at].size(), samplePaths[at]);
    }
    return bytes;
}

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

std::string instrumentWithSample(const std::string& samplePath) {
    std::string bytes("M8VERSION\0\x01\x04\0\0\x02", 15);
    return bytes + std::string(86, '\0') + samplePath;
}

}  // namespace tapekeep::test
