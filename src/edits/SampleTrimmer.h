#pragma once

#include <cstdint>
#include <filesystem>
#include <stop_token>

#include "platform/AudioFile.h"

// Writes the kept range of a sample to a new WAV file and leaves the source alone. The destination
// appears whole or not at all (AtomicFileExport); the file is copied in blocks of 32,768 frames, so
// memory use does not depend on its length. Stateless; any thread; the work runs on the caller's
// thread and ends with Cancelled at the first check after the token stops.
namespace tapekeep::SampleTrimmer {

// Keeps the frames from ⌊low × rate⌋ up to, not including, ⌊high × rate⌋, with `low` below 0
// counting as 0 and `high` past the end as the end. Returns the frames written. Throws
// SampleTrimmerError, AtomicFileExportError, PosixError or Cancelled.
std::int64_t trim(const std::filesystem::path& source, const std::filesystem::path& destination, double low,
                  double high, const std::stop_token& token);

// The output's format for a source's: integer PCM of 8, 16, 24 or 32 bits and float PCM of 32 or
// 64 bits stay as they are; anything else, compressed sources among them, becomes 16-bit integer.
// Rate and channels are kept.
AudioFormat outputFormat(const AudioFormat& source);

}  // namespace tapekeep::SampleTrimmer
