#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace tapekeep::test {

// Bytes that look random, so that nothing compresses them, and are the same for the same seed, so
// that a test can make the expected content again.
std::string pseudoRandomBytes(std::size_t size, unsigned seed);

// Every path below the folder, relative to it, with the content of each file ("/" for a folder,
// "-> target" for a link): a picture of what is on disk, to show that nothing changed.
std::map<std::string, std::string> treeOf(const std::filesystem::path& folder);

// The names in a folder (not below it), sorted.
std::vector<std::string> namesIn(const std::filesystem::path& folder);

// Every path below the folder whose name marks a file that an export writes on its way
// ("…-export-…"): none may outlive the export.
std::vector<std::filesystem::path> exportTemporariesBelow(const std::filesystem::path& folder);

// Whether `diff -r` finds the two folders alike; what it found otherwise goes to `differences`.
bool sameTree(const std::filesystem::path& a, const std::filesystem::path& b,
              std::string* differences = nullptr);

}  // namespace tapekeep::test
