#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tapekeep {

struct BackupOutcome {
    std::filesystem::path versionURL;
    std::optional<std::string> warning;  // every warning of the run joined by one blank
};

}  // namespace tapekeep
