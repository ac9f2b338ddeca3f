#pragma once

#include <cstdint>
#include <string>

namespace tapekeep {

// Byte counts the way a file browser words them: "Zero KB", "1 byte", "532 bytes", "12 KB",
// "1.5 MB", "2.35 GB" (decimal units).
std::string formatByteCount(std::int64_t bytes);

// An elapsed time: "0:05", "12:34", and with a positive hour count "1:02:03". Negative counts as 0.
std::string formatElapsed(std::int64_t seconds);

// 1234567 -> "1,234,567".
std::string formatWithThousandsSeparator(std::int64_t value);

}  // namespace tapekeep
