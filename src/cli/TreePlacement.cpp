#include "cli/TreePlacement.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "cli/PlacementError.h"
#include "core/PosixError.h"
#include "platform/ExclusiveCopy.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

TreePlacement::TreePlacement(fs::path destination) : destination_(std::move(destination)) {}

TreePlacement::~TreePlacement() {
    if (kept_) return;
    for (const auto& file : written_) ::unlink(file.c_str());
    for (auto folder = createdFolders_.rbegin(); folder != createdFolders_.rend(); ++folder)
        ::rmdir(folder->c_str());
}

fs::path TreePlacement::place(int sourceFd, const std::string& relative, const std::stop_token& token) {
    const fs::path file = destination_ / relative;
    createFoldersUpTo(file.parent_path());
    try {
        ExclusiveCopy::copyToNewFile(sourceFd, file, token);
    } catch (const PosixError& error) {
        if (error.code() == EEXIST) throw PlacementError::fileExists(file);
        throw;
    }
    written_.push_back(file);
    return file;
}

void TreePlacement::createFoldersUpTo(const fs::path& folder) {
    fs::path current = destination_;
    for (const auto& component : folder.lexically_relative(destination_)) {
        if (component.empty() || component == ".") continue;
        current /= component;
        if (::mkdir(current.c_str(), 0777) == 0) {
            createdFolders_.push_back(current);
            continue;
        }
        if (errno != EEXIST) throw PosixError::fromErrno(errno, current.string());
        std::error_code ignored;
        if (!fs::is_directory(current, ignored)) throw PlacementError::fileExists(current);
    }
}

}  // namespace tapekeep::cli
