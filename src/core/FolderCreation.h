#pragma once

#include <filesystem>
#include <functional>

namespace tapekeep {

// Makes the folders from root down to `folder` that are missing, each inside the one above it by
// descriptor and entered without following a link, so that a symbolic link planted anywhere on the
// way (even between a caller's own walk and here) can never move the creation off the card. For a
// link in the way refuseLink is called with its path and must throw. Throws PosixError when a folder
// cannot be made or opened. `folder` must lie below root, both lexically normal.
void makeFoldersWithoutFollowingLinks(
    const std::filesystem::path& root, const std::filesystem::path& folder,
    const std::function<void(const std::filesystem::path& link)>& refuseLink);

}  // namespace tapekeep
