#pragma once

#include <optional>
#include <string>
#include <vector>

#include "content/InstrumentInfo.h"

namespace tapekeep {

// What a song file says about itself: only the fixed fields the system reads.
struct M8SongMetadata {
    std::optional<double> tempo;              // absent when the stored value is outside 20.0 to 300.0
    std::string name;                         // the song's name as the device shows it; may be empty
    std::vector<InstrumentInfo> instruments;  // the occupied slots, in ascending slot order
    std::vector<std::string> samplePaths;     // each distinct sample path once, sorted ascending
};

}  // namespace tapekeep
