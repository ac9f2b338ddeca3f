#pragma once

#include <filesystem>
#include <string>

// Where a trim saved outside the staging flow goes: a WAV file the user names, never the sample
// itself. Stateless; any thread.
namespace tapekeep::TrimSaveName {

inline constexpr const char* panelTitle = "Save Trimmed Sample";

// "{stem}-trim.wav".
std::string defaultName(const std::filesystem::path& source);

// The chosen path with ".wav" appended when its extension is not "wav" in any case. Throws
// TrimSaveError when that is the source itself, by name or as the same file.
std::filesystem::path savePath(const std::filesystem::path& source, const std::filesystem::path& chosen);

}  // namespace tapekeep::TrimSaveName
