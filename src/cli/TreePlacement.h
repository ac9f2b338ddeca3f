#pragma once

#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

namespace tapekeep::cli {

// Puts files into a folder of the user's at their relative places, creating the folders between, and
// never replaces anything already there. All or nothing: unless kept, everything it created, files
// and folders, is removed again when it is destroyed, so a refusal half-way leaves the folder as it
// was. One thread.
class TreePlacement {
public:
    explicit TreePlacement(std::filesystem::path destination);
    ~TreePlacement();
    TreePlacement(const TreePlacement&) = delete;
    TreePlacement& operator=(const TreePlacement&) = delete;

    // Copies the open file to `relative` below the destination and returns where it went. Throws
    // PlacementError when that name, or a folder on the way, is taken by something else; PosixError,
    // or Cancelled.
    std::filesystem::path place(int sourceFd, const std::string& relative, const std::stop_token& token);
    // Everything placed so far stays.
    void keep() { kept_ = true; }
    [[nodiscard]] const std::vector<std::filesystem::path>& written() const { return written_; }

private:
    void createFoldersUpTo(const std::filesystem::path& folder);

    std::filesystem::path destination_;
    std::vector<std::filesystem::path> createdFolders_;  // outermost first
    std::vector<std::filesystem::path> written_;
    bool kept_ = false;
};

}  // namespace tapekeep::cli
