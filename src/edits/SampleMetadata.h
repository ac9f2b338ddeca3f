#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "core/Timestamp.h"

namespace tapekeep {

// What the preview shows of a sample before its waveform.
struct SampleMetadata {
    std::filesystem::path url;
    double durationSeconds = 0;  // frameCount ÷ sampleRate; 0 if the rate isn't positive
    double sampleRate = 0;
    int channelCount = 0;
    std::optional<int> bitDepth;  // none where the format has no fixed width (MP3, Ogg)
    std::uint64_t fileSize = 0;   // 0 if the file's attributes can't be read
    std::string formatName;       // "WAV", "AIFF", … by extension; empty for another
    std::optional<Clock::time_point> modifiedDate;
    std::int64_t frameCount = 0;  // as the file states it
};

}  // namespace tapekeep
