#pragma once

#include <filesystem>
#include <string>

namespace tapekeep::cli {

// The file that an export command writes, as an absolute path. Throws UsageError for a folder (an
// export names its file) and for a name in a folder that does not exist; a file already there is
// replaced, as a save panel's confirmed choice is.
std::filesystem::path exportDestination(const std::string& operand);

}  // namespace tapekeep::cli
