#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "content/FileNode.h"
#include "workflows/BackupBrowserViewModel.h"

namespace tapekeep::cli {

// A backup version opened through the browser controller, as the Browse tab opens it, with its
// tree loaded. Lives on the main thread.
class BrowsedVersion {
public:
    BrowsedVersion(const std::filesystem::path& version, const std::string& rsyncPath,
                   BackupBrowserViewModel::Dependencies dependencies = {});

    [[nodiscard]] BackupBrowserViewModel& browser() { return *browser_; }

    // The file or folder at a path below the version as the browser lists it; nothing for the
    // version itself ("" or "."). Throws BrowseFileError: sourceOutsideVersion for a path that
    // leaves the version (by ".." or a symbolic link), sourceMissing for one the tree doesn't hold.
    [[nodiscard]] std::optional<FileNode> node(const std::string& path) const;

    // Runs the event loop until done() holds; an interrupt first calls onInterrupt, and if done()
    // still doesn't hold after it, throws Cancelled.
    static void waitFor(const std::function<bool()>& done, const std::function<void()>& onInterrupt = {});

private:
    std::filesystem::path version_;
    std::unique_ptr<BackupBrowserViewModel> browser_;
};

}  // namespace tapekeep::cli
