#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tapekeep {

// What a component of a walk does when its kind cannot be read.
enum class UnreadableComponent { fails, countsAsNoLink };

// Walks from root down through the components, following none of them, and returns the path of the
// first that is a symbolic link; nothing when none is. A component that does not exist ends the
// walk, since nothing below it can be a link. One whose kind cannot be read throws PosixError, or
// is passed over as no link.
std::optional<std::filesystem::path> firstSymbolicLink(const std::filesystem::path& root,
                                                       const std::vector<std::string>& components,
                                                       UnreadableComponent unreadable);

}  // namespace tapekeep
