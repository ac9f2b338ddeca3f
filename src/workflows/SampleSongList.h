#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// The list of songs that use a sample, written to the desktop where the user finds it. The file is
// named after a hash of the sample's path, so writing it again for the same sample replaces it.
// Stateless; any thread.
namespace tapekeep::SampleSongList {

// "Tapekeep-songs-using-{hash of the path}.txt".
std::string fileName(const std::filesystem::path& sample);

// The file's text: a heading naming the sample, then each of its users that is a song, on a line of
// its own; instruments (".m8i") are left out.
std::string contents(const std::filesystem::path& sample, const std::vector<std::string>& users);

// Writes the list into `desktop` whole or not at all and returns the file. Throws
// SampleSongListError (desktopUnavailable, when there is no desktop) or PosixError.
std::filesystem::path write(const std::optional<std::filesystem::path>& desktop,
                            const std::filesystem::path& sample, const std::vector<std::string>& users);

}  // namespace tapekeep::SampleSongList
