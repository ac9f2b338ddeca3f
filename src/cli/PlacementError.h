#pragma once

#include <filesystem>

#include "core/Error.h"

namespace tapekeep::cli {

// A file that a command would write into the user's folder is already there; nothing is replaced.
class PlacementError : public Error {
public:
    static PlacementError fileExists(const std::filesystem::path& path) {
        return PlacementError("Nothing was written: " + path.string() + " already exists.");
    }

private:
    explicit PlacementError(const std::string& text) : Error(text) {}
};

}  // namespace tapekeep::cli
