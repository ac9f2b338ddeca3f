#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>

namespace tapekeep::RotationGuard {

// Regular files below the folder, not following links, side-car files not counted.
// Throws BackupOperationError "Could not read {path}." when the walk cannot start.
std::int64_t countBackupFiles(const std::filesystem::path& version, std::stop_token token);

// A warning when the new version holds less than half the files of a previous one that held at
// least 10: then the older versions must stay. Cancellation propagates.
std::optional<std::string> compareWithPrevious(const std::filesystem::path& newVersion,
                                               const std::optional<std::filesystem::path>& previous,
                                               std::stop_token token);

}  // namespace tapekeep::RotationGuard
