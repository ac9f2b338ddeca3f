#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why a sample's metadata or waveform could not be read. description() is the text the user reads.
class SampleAnalyzerError : public Error {
public:
    enum class Kind { unreadable, bufferAlloc, incompleteRead };

    static SampleAnalyzerError unreadable(const std::filesystem::path& file) {
        return {Kind::unreadable, "Could not read audio file at " + file.filename().string()};
    }
    static SampleAnalyzerError bufferAlloc() {
        return {Kind::bufferAlloc, "Could not allocate audio buffer"};
    }
    // The file ended before the frames its header names: it was cut short.
    static SampleAnalyzerError incompleteRead(std::int64_t expected, std::int64_t actual) {
        return {Kind::incompleteRead, "Audio read ended early (expected " + std::to_string(expected) +
                                          " frames, read " + std::to_string(actual) + ")"};
    }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    SampleAnalyzerError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
