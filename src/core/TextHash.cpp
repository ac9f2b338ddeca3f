#include "core/TextHash.h"

#include <cstdio>

namespace tapekeep::TextHash {

std::uint64_t fnv1a64(std::string_view bytes) {
    constexpr std::uint64_t offsetBasis = 0xcbf29ce484222325ULL;
    constexpr std::uint64_t prime = 0x100000001b3ULL;
    std::uint64_t hash = offsetBasis;
    for (const char byte : bytes) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= prime;
    }
    return hash;
}

std::string hexOf(std::string_view bytes) {
    char text[17] = {};
    std::snprintf(text, sizeof text, "%08llx", static_cast<unsigned long long>(fnv1a64(bytes)));
    return text;
}

}  // namespace tapekeep::TextHash
