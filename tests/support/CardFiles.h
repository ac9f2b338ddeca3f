#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace tapekeep::test {

// Rewrites a file on a card as the device saves it: removed, then written anew. fusefat cannot
// rewrite a file in place.
void rewriteOnCard(const std::filesystem::path& file, const std::string& content);

// The inode number of a file, following links; 0 when it cannot be read.
ino_t inodeOf(const std::filesystem::path& path);

}  // namespace tapekeep::test
