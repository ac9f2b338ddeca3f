#pragma once

#include <chrono>
#include <filesystem>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "content/DragOffer.h"
#include "core/Timestamp.h"

// Dragging a file out of a backup version. A song goes with its samples, so that it opens elsewhere
// with its references intact: the song and every sample it names are copied into a fresh folder
// "m8drag-{UUID}" of a temporary folder, each at its own place below the version. Folders of earlier
// drags are swept away once they are old enough that no drag can still be reading them.
//
// Nothing is read through a symbolic link that leaves the version, and nothing outside the fresh
// folder is written. Stateless; any thread; the work runs on the caller's thread.
namespace tapekeep::DragExport {

inline constexpr std::string_view folderPrefix = "m8drag-";
// A drag folder younger than this may still be read by the side that received the drag.
inline constexpr std::chrono::seconds staleAfter{300};

// How a node is offered: a folder or a file other than a song (.m8s) as it stands, a song with its
// sample paths, or as it stands when it names none. Throws BrowseFileError invalidSong for a song
// that cannot be read.
DragOffer offerFor(const std::filesystem::path& node);

// The file that the offer hands over: the node itself, or, after a sweep of the temporary folder,
// the song prepared with its samples. Throws as prepare does.
std::filesystem::path deliver(const DragOffer& offer, const std::filesystem::path& versionRoot,
                              const std::filesystem::path& temporaryFolder, std::stop_token token = {});

// Copies the song and the first existing candidate of each of its sample paths into a new
// "m8drag-{UUID}" folder of the temporary folder, at their paths below the version, and returns the
// copied song. A sample that two stored paths reach (in another letter case, with other slashes) is
// copied once. Throws BrowseFileError (sourceOutsideVersion and sourceMissing for the song,
// sampleMissing, samplePathEscapesVersion), PosixError, or Cancelled, checked before each file; on any
// failure the new folder is removed first.
std::filesystem::path prepare(const std::filesystem::path& song, const std::vector<std::string>& samplePaths,
                              const std::filesystem::path& versionRoot,
                              const std::filesystem::path& temporaryFolder, std::stop_token token = {});

// Removes the drag folders of the temporary folder created more than staleAfter before `now`. Other
// names, and symbolic links whatever their name, are left alone; nothing is removed through a link.
// Failures are ignored.
void sweep(const std::filesystem::path& temporaryFolder, Clock::time_point now);

// The application's own folder for drags under the system's temporary folder, created for this user
// alone when missing. Throws PosixError when it cannot be, or is not private.
std::filesystem::path defaultTemporaryFolder();

}  // namespace tapekeep::DragExport
