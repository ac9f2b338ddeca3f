#pragma once

#include <filesystem>
#include <stop_token>

#include "edits/SampleMetadata.h"
#include "edits/SampleWaveform.h"

// Reads what the preview shows of a sample: its metadata and its waveform. The file is read in
// blocks of 32,768 frames, so memory use does not depend on its length. Stateless; any thread; the
// work runs on the caller's thread and ends with Cancelled at the first check after the token stops.
namespace tapekeep::SampleAnalyzer {

// Throws SampleAnalyzerError (unreadable) or Cancelled. The file's size and date are left out,
// without an error, when its attributes can't be read.
SampleMetadata metadata(const std::filesystem::path& url, const std::stop_token& token);

// The waveform in `bins` bins (none for 0): peaks scaled so that the loudest bin reads 1, silence
// reading 0. Throws SampleAnalyzerError (unreadable, bufferAlloc, or incompleteRead for a file
// that ends before the frames its header names) or Cancelled.
SampleWaveform peaks(const std::filesystem::path& url, int bins, const std::stop_token& token);

// "WAV", "AIFF", "MP3", "FLAC", "M4A", "OGG" or "CAF" by the lower-cased extension; empty for
// another.
std::string formatName(const std::filesystem::path& url);

}  // namespace tapekeep::SampleAnalyzer
