#pragma once

#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

// The gate for every path of an edit: card paths come from a card, a song or a JSON file that
// anyone can change, and end up as places to write on a card. Also the one definition of when two
// card paths are the same. A card path is rooted with "/" and relative to the card's mount point.
// Stateless; any thread.
namespace tapekeep::EditPathValidator {

// Throws EditPathValidatorError (nullByte, notRooted, emptyComponent, containsTraversal, driveLetter),
// the first rule broken in that order; the rules look at every component.
void validatePath(std::string_view path);

// A single path component: not empty, "." or "..", and without "/", backslash or NUL. Throws
// EditPathValidatorError invalidComponent.
void validateComponent(std::string_view name);

// Backslashes become slashes, NFC, one leading slash, no doubled or trailing slash; "" is "/".
// No validation: "." and ".." stay, and so does the letter case.
std::string normalizePath(std::string_view path);

// Normalised and compared without regard to letter case.
bool pathsEqual(std::string_view first, std::string_view second);

// The normalised card path of a file below the root, links resolved in both; nothing when the file
// lies outside the root.
std::optional<std::string> cardRelativePath(const std::filesystem::path& file,
                                            const std::filesystem::path& root);

// Byte for byte, 1 MiB at a time, so that a large sample costs constant memory and a cancellation
// takes effect between chunks. Throws EditPathValidatorError contentsDiffer, PosixError when a
// file cannot be opened or read, or Cancelled.
void contentsEqual(const std::filesystem::path& first, const std::filesystem::path& second,
                   const std::stop_token& token = {});

}  // namespace tapekeep::EditPathValidator
