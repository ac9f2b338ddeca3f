#pragma once

#include <sys/types.h>

#include <ctime>
#include <filesystem>
#include <string>

namespace tapekeep::test {

// Rewrites a file on a card as the device saves it: removed, then written anew. fusefat cannot
// rewrite a file in place.
void rewriteOnCard(const std::filesystem::path& file, const std::string& content);

// Sets a file's modification (and access) time to the given second; false when it cannot.
bool setModificationTime(const std::filesystem::path& file, std::time_t seconds);

// The inode number of a file, following links; 0 when it cannot be read.
ino_t inodeOf(const std::filesystem::path& path);

}  // namespace tapekeep::test
