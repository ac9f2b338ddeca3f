#pragma once

#include <optional>
#include <string>
#include <vector>

#include "content/FileNode.h"

namespace tapekeep::FileNodeLookup {

// The nodes of a loaded version tree along a path given by its names, from the top level down. Each
// name is matched exactly first and then, as the card's file system matches it, without regard to
// letter case. Nothing when a name matches nothing or a file stands where a folder is needed; an
// empty list for no names. The pointers point into `roots`. Pure; any thread.
std::optional<std::vector<const FileNode*>> chain(const std::vector<FileNode>* roots,
                                                  const std::vector<std::string>& names);

}  // namespace tapekeep::FileNodeLookup
