#pragma once

#include <string>
#include <vector>

namespace tapekeep::test {

// The bytes of a whole song of the newer layout (stride 215, sample path at record offset 87)
// whose first slots are samplers with these paths; every other slot is empty.
std::string songWithSamples(const std::vector<std::string>& samplePaths);

}  // namespace tapekeep::test
