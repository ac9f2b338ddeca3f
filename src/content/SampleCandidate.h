#pragma once

#include <filesystem>
#include <string>

namespace tapekeep::BrowseFileService {

// One place inside a version where a stored sample path may point.
struct SampleCandidate {
    std::filesystem::path url;         // absolute, lexically normal, symbolic links resolved
    std::string key;                   // normalizedKey of the path below the version root, letter case kept
    bool throughSymbolicLink = false;  // a symbolic link inside the version was followed to get here
};

}  // namespace tapekeep::BrowseFileService
