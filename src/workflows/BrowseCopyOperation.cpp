#include "workflows/BrowseCopyOperation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "backup/RsyncCommands.h"
#include "cards/OperationLock.h"
#include "content/BrowseFileError.h"
#include "content/M8ContentScanner.h"
#include "content/SampleReferences.h"
#include "core/Cancelled.h"
#include "core/FileComparison.h"
#include "core/FileDescriptor.h"
#include "core/FileReading.h"
#include "core/FolderCreation.h"
#include "core/LinkWalk.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"
#include "core/StandardPath.h"
#include "workflows/RestoreOperation.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

std::optional<struct stat> linkStatus(const fs::path& path) {
    struct stat status {};
    if (retryingInterrupts([&] { return ::lstat(path.c_str(), &status); }) != 0) return std::nullopt;
    return status;
}

enum class EntryKind { file, folder };

// A source is copied only as a real folder or a regular file; a link is never followed.
EntryKind sourceKind(const fs::path& source) {
    const auto status = linkStatus(source);
    if (!status) throw BrowseFileError::sourceMissing(source);
    if (S_ISDIR(status->st_mode)) return EntryKind::folder;
    if (S_ISREG(status->st_mode)) return EntryKind::file;
    throw BrowseFileError::unsupportedSource(source);
}

// ---- read-back --------------------------------------------------------------------------------

// Path below the compared folder -> what stands there.
using Listing = std::map<std::string, EntryKind>;

// Names that no version or copy carries: the content scan's skipped names, and the "._" files that
// rsync's excludes keep out as well. What lies below them is left out with them.
bool isLeftOut(const std::string& name) {
    return M8ContentScanner::isSkippedName(name) || name.starts_with("._");
}

void listInto(Listing& listing, const fs::path& folder, const std::string& below,
              const std::stop_token& token) {
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    if (error) throw BrowseFileError::sourceMissing(folder);
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
        if (error) throw PosixError(error.value(), folder.string() + ": " + error.message());
        throwIfCancelled(token);
        const fs::path& path = entries->path();
        const std::string name = path.filename().string();
        if (isLeftOut(name)) continue;
        const std::string relative = below.empty() ? name : below + '/' + name;
        const EntryKind kind = sourceKind(path);
        listing.emplace(relative, kind);
        if (kind == EntryKind::folder) listInto(listing, path, relative, token);
    }
    if (error) throw PosixError(error.value(), folder.string() + ": " + error.message());
}

Listing listingOf(const fs::path& folder, const std::stop_token& token) {
    Listing listing;
    listInto(listing, folder, {}, token);
    return listing;
}

// The regular file at the path, open for reading; nothing where none is (missing, a link, a folder).
std::optional<FileDescriptor> openRegularFile(const fs::path& path) {
    const int fd =
        retryingInterrupts([&] { return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC); });
    if (fd < 0) {
        if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP) return std::nullopt;
        throw PosixError::fromErrno(errno, path.string());
    }
    FileDescriptor file(fd);
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) throw PosixError::fromErrno(errno, path.string());
    if (!S_ISREG(status.st_mode)) return std::nullopt;
    return file;
}

// Files compared block by block, through two buffers reused from one file to the next.
class ContentComparison {
public:
    explicit ContentComparison(std::stop_token token)
        : token_(std::move(token)),
          sourceBlock_(BrowseCopyOperation::blockSize),
          destinationBlock_(BrowseCopyOperation::blockSize) {}

    // Whether the destination holds the source's bytes, no fewer and no more.
    bool sameContent(const fs::path& source, const fs::path& destination) {
        const auto sourceFile = openRegularFile(source);
        if (!sourceFile) throw BrowseFileError::unsupportedSource(source);
        const auto destinationFile = openRegularFile(destination);
        if (!destinationFile) return false;
        return sameBytesToEnd(sourceFile->get(), source.string(), sourceBlock_, destinationFile->get(),
                              destination.string(), destinationBlock_, token_);
    }

private:
    std::stop_token token_;
    std::vector<char> sourceBlock_;
    std::vector<char> destinationBlock_;
};

void verifyFolder(const fs::path& source, const fs::path& destination, const std::stop_token& token) {
    const Listing sourceListing = listingOf(source, token);
    const Listing destinationListing = listingOf(destination, token);
    ContentComparison comparison(token);
    for (const auto& [path, kind] : sourceListing) {
        const auto copied = destinationListing.find(path);
        const bool same =
            copied != destinationListing.end() && copied->second == kind &&
            (kind == EntryKind::folder || comparison.sameContent(source / path, destination / path));
        if (!same) throw BrowseFileError::verificationFailed(destination / path);
    }
}

}  // namespace

// ---- the operation ----------------------------------------------------------------------------

BrowseCopyOperation::Dependencies BrowseCopyOperation::standardDependencies(Validator validate) {
    return {
        .validateVolume = RestoreOperation::mountedCheck(std::move(validate)),
        .run = BackupOperation::defaultRsyncRunner(),
        .verifyContents = &BrowseCopyOperation::verifyContents,
        .acquire =
            [](const VolumeUUID& uuid) {
                return OperationLock::shared().acquire(uuid, OperationKind::browse);
            },
        .release = [](const Lease& lease) { OperationLock::shared().release(lease); },
    };
}

BrowseCopyOperation::BrowseCopyOperation(Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {}

fs::path BrowseCopyOperation::copy(const Request& request, const LineHandler& onLine,
                                   std::stop_token token) const {
    if (request.card.diskUtilUUID.empty()) throw BrowseFileError::missingVolumeIdentity();
    // Standardised first: rsync then reads the very file that relativePath resolved (a ".." after a
    // link would lead it elsewhere), and no trailing "/" makes a link read as the folder it points to.
    const fs::path source = standardized(request.source);
    // The file goes back to the place it came from, found with every link of the version resolved.
    const fs::path destination =
        standardized(request.destinationRoot) / BrowseFileService::relativePath(source, request.versionRoot);
    const Lease lease = dependencies_.acquire(VolumeUUID{request.card.diskUtilUUID});
    try {
        copyHoldingLease(request, source, destination, onLine, token);
    } catch (...) {
        dependencies_.release(lease);
        throw;
    }
    dependencies_.release(lease);
    return destination;
}

void BrowseCopyOperation::copyHoldingLease(const Request& request, const fs::path& source,
                                           const fs::path& destination, const LineHandler& onLine,
                                           std::stop_token token) const {
    const fs::path root = standardized(request.destinationRoot);
    confirmCard(request.card, token);
    refuseSymbolicLinks(destination, root);
    makeFoldersWithoutFollowingLinks(root, destination.parent_path(), [](const fs::path& link) {
        throw BrowseFileError::destinationSymlink(link.string());
    });
    dependencies_.validateVolume(request.card, token);
    refuseSymbolicLinks(destination, root);  // the creation may have met a card that changed meanwhile
    const bool isFolder = sourceKind(source) == EntryKind::folder;
    const int status = dependencies_.run(
        request.rsyncPath, RsyncCommands::copyToCardArguments(source, destination, isFolder), onLine, token);
    throwIfCancelled(token);  // a stopped rsync's status is no transfer failure
    if (status != 0) throw BrowseFileError::transferFailed(status);
    confirmCard(request.card, token);
    dependencies_.verifyContents(source, destination, token);
    dependencies_.validateVolume(request.card, token);
}

void BrowseCopyOperation::confirmCard(const SDCard& card, std::stop_token token) const {
    throwIfCancelled(token);
    dependencies_.validateVolume(card, std::move(token));
}

void BrowseCopyOperation::verifyContents(const fs::path& source, const fs::path& destination,
                                         std::stop_token token) {
    const fs::path from = standardized(source);
    const fs::path to = standardized(destination);
    if (sourceKind(from) == EntryKind::folder) return verifyFolder(from, to, token);
    if (!ContentComparison(token).sameContent(from, to)) throw BrowseFileError::verificationFailed(to);
}

void BrowseCopyOperation::refuseSymbolicLinks(const fs::path& destination, const fs::path& root) {
    const fs::path standardRoot = standardized(root);
    const fs::path standardDestination = standardized(destination);
    if (standardDestination == standardRoot ||
        !BrowseFileService::isInside(standardDestination, standardRoot))
        throw BrowseFileError::sourceOutsideVersion();
    std::vector<std::string> components;
    for (const auto& component : standardDestination.lexically_relative(standardRoot))
        components.push_back(component.string());
    if (const auto link = firstSymbolicLink(standardRoot, components, UnreadableComponent::fails))
        throw BrowseFileError::destinationSymlink(link->string());
}

}  // namespace tapekeep
