#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tapekeep {

// The rsync builds to prefer over whatever the settings hold, best first.
const std::vector<std::string>& rsyncCandidates();

// The first candidate that is an executable file, or none; callers fall back to "/usr/bin/rsync".
// Reads the file system; any thread.
std::optional<std::string> findBestRsync(const std::vector<std::string>& candidates = rsyncCandidates());

// True for a regular file (after following links) that this process may execute.
bool isExecutableFile(const std::string& path);

}  // namespace tapekeep
