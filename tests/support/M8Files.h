#pragma once

#include <string>
#include <vector>

namespace tapekeep::test {

// The bytes of a whole song of the newer layout (stride 215, sample path at record offset 87)
// whose first slots are samplers with these paths; every other slot is empty.
std::string songWithSamples(const std::vector<std::string>& samplePaths);

// The bytes of a song a device wrote (CMDMAPPING_4_1_beta.m8s of the fixtures, with its synths and
// macros) whose samplers name exactly these paths: its own sampler first, then empty slots made
// samplers. At most 112 paths.
std::string deviceSongWithSamples(const std::vector<std::string>& samplePaths);

// The bytes of a sampler instrument file whose sample path field ends with this path.
std::string instrumentWithSample(const std::string& samplePath);

}  // namespace tapekeep::test
