#pragma once

#include <filesystem>

namespace tapekeep::test {

// rsync wrappers that the settings can name in place of rsync; "--version" always passes through.

// Waits before each transfer until `folder/gate` exists, and creates `folder/started` when a
// transfer waits, so that a test sees a run while it holds the card.
std::filesystem::path gatedRsync(const std::filesystem::path& folder);

// Prints `lines` itemised file lines before each transfer, as a card of that many files would.
std::filesystem::path chattyRsync(const std::filesystem::path& folder, int lines);

}  // namespace tapekeep::test
