#pragma once

#include <vector>

namespace tapekeep {

// A sample's waveform in bins of equal length.
struct SampleWaveform {
    // The lowest and highest sample value of a bin over every channel, from -1 to 1; 0 and 0 for a
    // bin that no frame falls in.
    struct Range {
        float low = 0;
        float high = 0;
    };

    std::vector<float> peaks;   // each bin's largest magnitude over the loudest bin's, 0 to 1
    std::vector<Range> ranges;  // the same bins' values as they are
    double durationSeconds = 0;
};

}  // namespace tapekeep
