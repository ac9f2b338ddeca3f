#pragma once

#include <cstdint>
#include <string>

namespace tapekeep {

// Byte counts the way a file browser words them: "Zero KB", "1 byte", "532 bytes", "12 KB",
// "1.5 MB", "2.35 GB" (decimal units).
std::string formatByteCount(std::int64_t bytes);

// 1234567 -> "1,234,567".
std::string formatWithThousandsSeparator(std::int64_t value);

}  // namespace tapekeep
