#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "core/Error.h"

namespace tapekeep {

// Why a trim was not written. description() is the text the user reads.
class SampleTrimmerError : public Error {
public:
    enum class Kind { rangeInvalid, unreadable, unwritable, incompleteRead, bufferAlloc };

    // The range as the caller gave it, before clamping, and the file's duration, all in seconds.
    static SampleTrimmerError rangeInvalid(double low, double high, double total) {
        char text[160];
        std::snprintf(text, sizeof text, "Trim range invalid: %.2f\u2013%.2fs (file is %.2fs)", low, high,
                      total);
        return {Kind::rangeInvalid, text};
    }
    static SampleTrimmerError unreadable(const std::filesystem::path& file) {
        return {Kind::unreadable, "Cannot read " + file.filename().string()};
    }
    static SampleTrimmerError unwritable(const std::filesystem::path& file) {
        return {Kind::unwritable, "Cannot write " + file.filename().string()};
    }
    static SampleTrimmerError incompleteRead(std::int64_t expected, std::int64_t actual) {
        return {Kind::incompleteRead, "Audio read ended early (expected " + std::to_string(expected) +
                                          " frames, read " + std::to_string(actual) + ")"};
    }
    static SampleTrimmerError bufferAlloc() { return {Kind::bufferAlloc, "Cannot allocate audio buffer"}; }

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    SampleTrimmerError(Kind kind, const std::string& text) : Error(text), kind_(kind) {}

    Kind kind_;
};

}  // namespace tapekeep
