#pragma once

#include <filesystem>
#include <stop_token>
#include <vector>

#include "content/FileNode.h"

namespace tapekeep {

// The file tree of a backup version, read once when it is opened. Any thread.
//
// Hidden names (beginning with ".") and symbolic links are left out, so nothing outside the version
// is ever reached through a link; so is an entry whose type cannot be read, and anything that is
// neither a folder nor a regular file. A folder that cannot be listed counts as empty. Each level
// lists folders first, then by name without regard to case. Throws Cancelled, checked per entry.
std::vector<FileNode> loadFileTree(const std::filesystem::path& root, std::stop_token token = {});

}  // namespace tapekeep
