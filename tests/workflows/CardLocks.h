#pragma once

#include <cstdlib>
#include <filesystem>

namespace tapekeep::test {

// Card locks of this test only, in a folder of its own: test programs run side by side with the
// same made-up cards.
inline void keepCardLocksIn(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
    ::setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
}

}  // namespace tapekeep::test
