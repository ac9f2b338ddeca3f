#pragma once

#include <filesystem>
#include <string_view>

namespace tapekeep {

// Writes the bytes to a hidden temporary neighbour, fsyncs it and renames it over the target,
// so that a reader sees the old content or the new, never a part. The temporary never outlives
// a failure. Throws PosixError.
void writeFileAtomically(const std::filesystem::path& target, std::string_view bytes);

// Creates the file, refusing one that exists (a link included), writes the bytes and fsyncs them.
// A failure leaves what was written; the caller decides whether it goes. Throws PosixError.
void writeNewFile(const std::filesystem::path& file, std::string_view bytes);

}  // namespace tapekeep
