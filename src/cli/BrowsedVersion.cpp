#include "cli/BrowsedVersion.h"

#include "cli/EventLoop.h"
#include "cli/SignalCancellation.h"
#include "content/BrowseFileError.h"
#include "content/FileNodeLookup.h"
#include "content/SampleReferences.h"
#include "core/Cancelled.h"

namespace tapekeep::cli {
namespace fs = std::filesystem;

BrowsedVersion::BrowsedVersion(const fs::path& version, const std::string& rsyncPath,
                               BackupBrowserViewModel::Dependencies dependencies)
    : version_(version),
      browser_(std::make_unique<BackupBrowserViewModel>(version, rsyncPath, std::move(dependencies))) {
    browser_->loadTree();
    waitFor([this] { return browser_->isTreeLoaded(); });
}

std::optional<FileNode> BrowsedVersion::node(const std::string& path) const {
    const fs::path relative = fs::path(path).lexically_normal();
    if (relative.empty() || relative == ".") return std::nullopt;
    // Refuses "..", an absolute path and any link on the way before the tree is consulted.
    const fs::path below = BrowseFileService::relativePath(version_ / relative, version_);
    std::vector<std::string> names;
    for (const auto& part : below) names.push_back(part.string());
    const auto nodes = FileNodeLookup::chain(browser_->rootNodes().get(), names);
    if (!nodes || nodes->empty()) throw BrowseFileError::sourceMissing(version_ / relative);
    return *nodes->back();
}

void BrowsedVersion::waitFor(const std::function<bool()>& done, const std::function<void()>& onInterrupt) {
    runEventsUntil([&] { return done() || (!onInterrupt && SignalCancellation::signalled()); }, onInterrupt);
    if (!done()) throw Cancelled();
}

}  // namespace tapekeep::cli
