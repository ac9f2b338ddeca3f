#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// A short, stable name for a text: 64-bit FNV-1a over its UTF-8 bytes. Not for security; only so
// that the same text always gives the same file name. Stateless; any thread.
namespace tapekeep::TextHash {

std::uint64_t fnv1a64(std::string_view bytes);

// fnv1a64 in lower-case hex, at least 8 digits ("%08llx").
std::string hexOf(std::string_view bytes);

}  // namespace tapekeep::TextHash
