#pragma once

#include <filesystem>

#include "content/SampleReferences.h"

namespace tapekeep {

// What the "unused" filter of a search needs to tell an unused sample: the version's folder and its
// complete sample usage index.
struct UnusedSampleLookup {
    std::filesystem::path versionPath;
    BrowseFileService::SampleUsageIndex index;
};

}  // namespace tapekeep
