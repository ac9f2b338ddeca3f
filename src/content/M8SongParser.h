#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "content/M8InstrumentError.h"
#include "content/M8SongMetadata.h"

namespace tapekeep::M8SongParser {

// The only code that reads inside M8 files. Each call reads the whole file and keeps no state;
// safe on any thread at once, no cancellation checks (callers check between files).
// The file's name and extension are not looked at: the caller chooses the operation.
// A file above 16 MiB is no M8 file and is refused unread, as if it could not be read.

// Absent for anything that is not a whole song; never throws.
std::optional<M8SongMetadata> parseSong(const std::filesystem::path& file);

// The instrument's sample path, absent when it uses none. Throws M8InstrumentError.
std::optional<std::string> parseInstrument(const std::filesystem::path& file);

// The instrument of an .m8i file: its type, name and sample path (index 0). Throws M8InstrumentError
// as parseInstrument does.
InstrumentInfo parseInstrumentInfo(const std::filesystem::path& file);

// The song's distinct sample paths, sorted; empty for a bad file (indistinguishable from a song
// without samples). Never throws.
std::vector<std::string> parseSamplePaths(const std::filesystem::path& file);

}  // namespace tapekeep::M8SongParser
