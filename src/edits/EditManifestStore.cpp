#include "edits/EditManifestStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "core/AtomicFile.h"
#include "core/Error.h"
#include "core/FileDescriptor.h"
#include "core/FileReading.h"
#include "core/Log.h"
#include "core/NotificationCenter.h"
#include "core/PosixError.h"
#include "core/RetryingInterrupts.h"
#include "core/Uuid.h"
#include "edits/EditManifestCoding.h"
#include "edits/EditManifestStoreError.h"
#include "edits/EditPathValidator.h"
#include "edits/EditPathValidatorError.h"
#include "edits/EditValidation.h"
#include "platform/NoReplaceRename.h"

// The steps at which the step hook runs, in the order of each operation:
//   save.tempWritten         temporary manifest written, manifest not yet replaced
//   save.replacing           just before the temporary file replaces the manifest
//   {operation}.fileMoved    addEdit, replaceEdit: staged file in place, manifest not yet saved
//   {operation}.movingBack   addEdit, replaceEdit: a save failed, the staged file goes back
//   {operation}.saved        replaceEdit, renameEditTarget, discardEdit, markApplied: manifest saved,
//                            the staged file (or the marker) not yet removed
//   {operation}.fileRemoved  replaceEdit, discardEdit, markApplied: staged file gone, marker not yet
//   writeCommitMarker.tempWritten   temporary marker written, not yet in place
//   cleanupOrphanedStagedFiles.removing   before each orphan goes

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

using StoreError = EditManifestStoreError;

const Log log("EditManifestStore");

constexpr const char* editsFolderName = ".edits";
constexpr const char* manifestFileName = "manifest.json";
constexpr const char* stagedFolderName = "staged";
constexpr const char* markerFolderName = "commit-pending";
// Two reads of one unchanged file's date may differ by rounding on some file systems.
constexpr std::chrono::nanoseconds staleTolerance = std::chrono::milliseconds(1);

std::string standardized(const fs::path& url) {
    auto text = url.lexically_normal().string();
    if (text.size() > 1 && text.ends_with('/')) text.pop_back();
    return text;
}

std::vector<std::string> partsBelow(const std::string& path, std::size_t baseLength) {
    std::vector<std::string> parts;
    std::string part;
    for (std::size_t at = baseLength; at <= path.size(); ++at) {
        if (at == path.size() || path[at] == '/') {
            if (!part.empty()) parts.push_back(std::move(part));
            part.clear();
        } else {
            part += path[at];
        }
    }
    return parts;
}

// Absent means the path does not exist; other failures throw.
std::optional<struct stat> linkStatus(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) == 0) return status;
    if (errno == ENOENT) return std::nullopt;
    throw StoreError::ioFailed("Could not inspect " + path.string() + ": " + errnoText(errno));
}

bool existsHere(const fs::path& path) {
    return linkStatus(path).has_value();
}

void removeFile(const fs::path& path) {
    if (::unlink(path.c_str()) != 0) throw PosixError::fromErrno(errno, path.string());
}

void removeQuietly(const fs::path& path) {
    ::unlink(path.c_str());
}

// Within one file system a rename; across two a copy and the removal of the source. Never
// replaces a file at the destination.
void moveFile(const fs::path& from, const fs::path& to) {
    try {
        renameNoReplace(from, to);
    } catch (const PosixError& error) {
        if (error.code() != EXDEV) throw;
        fs::copy_file(from, to, fs::copy_options::none);
        removeFile(from);
    }
}

void refuseLinkedRenderedFile(const fs::path& renderedFile) {
    struct stat status {};
    if (::lstat(renderedFile.c_str(), &status) == 0 && S_ISLNK(status.st_mode))
        throw StoreError::symlinkInStorage(renderedFile.string());
}

void validateRoot(const std::string& root) {
    try {
        EditPathValidator::validateComponent(root);
    } catch (const EditPathValidatorError&) {
        throw StoreError::pathInvalid(root);
    }
}

std::optional<std::size_t> indexOf(const EditManifest& manifest, const std::string& id) {
    const auto found = std::find_if(manifest.edits.begin(), manifest.edits.end(),
                                    [&](const EditEntry& edit) { return edit.id == id; });
    if (found == manifest.edits.end()) return std::nullopt;
    return static_cast<std::size_t>(found - manifest.edits.begin());
}

// Decoding and validation pass as they are; what the file system says becomes ioFailed.
template <typename Work>
auto mappingFailures(Work work) {
    try {
        return work();
    } catch (const StoreError&) {
        throw;
    } catch (const std::exception& error) {
        throw StoreError::ioFailed(describe(error));
    }
}

// An exclusive flock on the folder itself, so that no lock file joins the storage; held until the
// descriptor closes.
FileDescriptor lockedFolder(const fs::path& folder) {
    auto descriptor = mappingFailures([&] {
        return FileDescriptor::checked(
            ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC), folder.string());
    });
    if (retryingInterrupts([&] { return ::flock(descriptor.get(), LOCK_EX); }) != 0)
        throw StoreError::ioFailed("Could not lock " + folder.string() + ": " + errnoText(errno));
    return descriptor;
}

}  // namespace

EditManifestStore::EditManifestStore(fs::path baseURL) : baseURL_(std::move(baseURL)) {}

void EditManifestStore::setBeforeManifestWrite(WriteHook hook) {
    const OperationGuard guard(*this);
    beforeManifestWrite_ = std::move(hook);
}

void EditManifestStore::setStepHook(StepHook hook) {
    const OperationGuard guard(*this);
    stepHook_ = std::move(hook);
}

// ---- paths ------------------------------------------------------------------------------------

void EditManifestStore::checkStoragePath(const fs::path& url, bool missingAllowed) const {
    const auto base = standardized(baseURL_);
    const auto path = standardized(url);
    const auto prefix = base.ends_with('/') ? base : base + "/";
    if (path != base && !path.starts_with(prefix)) throw StoreError::pathInvalid(path);
    fs::path current = base;
    for (const auto& part : partsBelow(path, std::min(path.size(), base.size()))) {
        current /= part;
        const auto status = linkStatus(current);
        if (status && S_ISLNK(status->st_mode)) throw StoreError::symlinkInStorage(current.string());
        if (status) continue;
        if (missingAllowed) return;
        throw StoreError::ioFailed("Edit storage path is missing: " + current.string());
    }
}

void EditManifestStore::ensureStorageDirectory(const fs::path& folder) const {
    checkStoragePath(folder, true);
    mappingFailures([&] { return fs::create_directories(folder); });
    checkStoragePath(folder, false);
}

fs::path EditManifestStore::storageFolder(const std::string& root) const {
    validateRoot(root);
    return baseURL_ / editsFolderName / root;
}

fs::path EditManifestStore::markerPath(const std::string& id, const std::string& root) const {
    auto name = id;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return static_cast<char>(std::toupper(c)); });
    try {
        EditPathValidator::validateComponent(name);
    } catch (const EditPathValidatorError& error) {
        throw StoreError::pathInvalid(error.description());
    }
    return storageFolder(root) / markerFolderName / (name + ".json");
}

fs::path EditManifestStore::stagedURL(const EditEntry& edit, const std::string& root) {
    const OperationGuard guard(*this);
    return stagedURLLocked(edit, root);
}

fs::path EditManifestStore::stagedURLLocked(const EditEntry& edit, const std::string& root) const {
    const auto folder = storageFolder(root);
    try {
        EditPathValidator::validateComponent(edit.stagedFileName);
    } catch (const EditPathValidatorError& error) {
        throw StoreError::pathInvalid(error.description());
    }
    auto staged = folder / stagedFolderName / edit.stagedFileName;
    checkStoragePath(staged, true);
    return staged;
}

void EditManifestStore::step(std::string_view name) const {
    if (stepHook_) stepHook_(name);
}

void EditManifestStore::postChange() const {
    NotificationCenter::defaultCenter().post(Notifications::editsDidChange, baseURL_.string());
}

// ---- manifest ---------------------------------------------------------------------------------

std::optional<EditManifestStore::FileStamp> EditManifestStore::stampOf(const fs::path& file) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0) return std::nullopt;
    return FileStamp{
        std::chrono::seconds(status.st_mtim.tv_sec) + std::chrono::nanoseconds(status.st_mtim.tv_nsec),
        status.st_dev, status.st_ino};
}

EditManifest EditManifestStore::load(const std::string& root) {
    const OperationGuard guard(*this);
    return loadLocked(root);
}

void EditManifestStore::holdFolderLock(const fs::path& folder) {
    if (!folderLock_) folderLock_ = lockedFolder(folder);
}

EditManifest EditManifestStore::loadLocked(const std::string& root) {
    const auto manifestPath = storageFolder(root) / manifestFileName;
    checkStoragePath(manifestPath, true);
    if (existsHere(manifestPath.parent_path())) holdFolderLock(manifestPath.parent_path());
    if (!existsHere(manifestPath)) {
        // Remembered too: a manifest another writer creates after this must not be overwritten.
        mtimes_[root] = std::nullopt;
        return {EditManifest::currentSchemaVersion, root, {}};
    }
    auto manifest = mappingFailures([&] {
        auto decoded = EditManifestCoding::decodeManifest(
            readWholeFile(manifestPath, {.followSymbolicLinks = false, .regularFileOnly = true}));
        EditValidation::validateManifest(decoded, root);
        for (const auto& edit : decoded.edits) {
            if (!edit.isPending()) continue;
            EditValidation::validateEdit(edit);
            stagedURLLocked(edit, root);
        }
        return decoded;
    });
    mtimes_[root] = stampOf(manifestPath);
    return manifest;
}

void EditManifestStore::save(const EditManifest& manifest) {
    const OperationGuard guard(*this);
    saveLocked(manifest);
}

void EditManifestStore::saveLocked(const EditManifest& manifest) {
    const auto& root = manifest.backupRootName;
    EditValidation::validateManifest(manifest, root);
    const auto folder = storageFolder(root);
    const auto manifestPath = folder / manifestFileName;
    ensureStorageDirectory(folder);
    checkStoragePath(manifestPath, true);
    // Another process's save between the stale test and the replace would be lost without it.
    holdFolderLock(folder);
    testStaleness(root, manifestPath);
    std::string bytes;
    try {
        bytes = EditManifestCoding::encodeManifest(manifest);
    } catch (const std::exception& error) {
        throw StoreError::ioFailed("Encoding failed: " + describe(error));
    }
    if (beforeManifestWrite_) beforeManifestWrite_();
    writeManifestFile(manifestPath, bytes);
    mtimes_[root] = stampOf(manifestPath);
    postChange();
}

void EditManifestStore::testStaleness(const std::string& root, const fs::path& manifest) const {
    const auto remembered = mtimes_.find(root);
    if (remembered == mtimes_.end()) return;
    const auto stamp = stampOf(manifest);
    const auto& known = remembered->second;
    if (!known && !stamp) return;
    // Made, or removed, by another writer since it was read here.
    if (!known || !stamp) throw StoreError::staleManifest();
    if (stamp->device != known->device || stamp->inode != known->inode ||
        std::chrono::abs(stamp->date - known->date) > staleTolerance)
        throw StoreError::staleManifest();
}

void EditManifestStore::writeTemporary(const fs::path& temporary, const std::string& bytes,
                                       std::string_view written, const std::string& failureText,
                                       const std::function<void()>& thenDo) const {
    checkStoragePath(temporary, true);
    try {
        writeNewFile(temporary, bytes);
        step(written);
        thenDo();
    } catch (const std::exception& error) {
        removeQuietly(temporary);
        throw StoreError::ioFailed(failureText + describe(error));
    }
}

void EditManifestStore::writeManifestFile(const fs::path& manifest, const std::string& bytes) {
    const auto temporary = manifest.parent_path() / ("manifest-" + makeUuid().substr(0, 8) + ".tmp");
    writeTemporary(temporary, bytes, "save.tempWritten", "Write to temp file failed: ", [&] {
        checkStoragePath(manifest, true);
        checkStoragePath(temporary, false);
    });
    try {
        step("save.replacing");
        // Over an existing manifest one atomic rename; where there is none yet, a rename that
        // cannot replace a manifest that another writer has just made.
        if (existsHere(manifest)) {
            if (::rename(temporary.c_str(), manifest.c_str()) != 0)
                throw PosixError::fromErrno(errno, manifest.string());
        } else {
            renameNoReplace(temporary, manifest);
        }
    } catch (const std::exception& error) {
        removeQuietly(temporary);
        throw StoreError::ioFailed("Atomic replace failed: " + describe(error));
    }
}

std::vector<EditEntry> EditManifestStore::pendingEdits(const std::string& root) {
    const OperationGuard guard(*this);
    auto edits = loadLocked(root).edits;
    std::erase_if(edits, [](const EditEntry& edit) { return !edit.isPending(); });
    return edits;
}

// ---- staged files -----------------------------------------------------------------------------

void EditManifestStore::moveRenderedFile(const fs::path& renderedFile, const fs::path& staged,
                                         const char* failureText) const {
    try {
        moveFile(renderedFile, staged);
    } catch (const std::exception& error) {
        throw StoreError::ioFailed(failureText + describe(error));
    }
}

void EditManifestStore::saveOrMoveBack(const EditManifest& manifest, const fs::path& staged,
                                       const fs::path& renderedFile, const std::string& operation,
                                       const char* rollbackName) {
    try {
        step(operation + ".fileMoved");
        saveLocked(manifest);
    } catch (const std::exception& saveError) {
        try {
            step(operation + ".movingBack");
            moveFile(staged, renderedFile);
        } catch (const std::exception& moveError) {
            throw StoreError::ioFailed("Manifest save failed (" + describe(saveError) + "); " + rollbackName +
                                       " rollback also failed (" + describe(moveError) + ").");
        }
        throw;
    }
}

void EditManifestStore::removeStagedFile(const fs::path& staged) const {
    checkStoragePath(staged, false);
    removeFile(staged);
}

void EditManifestStore::addEdit(const EditEntry& edit, const fs::path& renderedFile,
                                const std::string& root) {
    const OperationGuard guard(*this);
    validateRoot(root);
    EditValidation::validateEdit(edit);
    auto manifest = loadLocked(root);
    for (const auto& existing : manifest.edits) {
        if (existing.id == edit.id) throw StoreError::modeInvalid("An edit with this ID already exists.");
        if (existing.stagedFileName == edit.stagedFileName)
            throw StoreError::modeInvalid("A staged file with this name already exists.");
    }
    ensureStorageDirectory(storageFolder(root) / stagedFolderName);
    refuseLinkedRenderedFile(renderedFile);
    const auto staged = stagedURLLocked(edit, root);
    if (existsHere(staged)) throw StoreError::ioFailed("Staged destination already exists.");
    moveRenderedFile(renderedFile, staged, "Failed to move staged file: ");
    manifest.edits.push_back(edit);
    saveOrMoveBack(manifest, staged, renderedFile, "addEdit", "staged");
}

void EditManifestStore::replaceEdit(const std::string& oldID, const EditEntry& newEdit,
                                    const fs::path& renderedFile, const std::string& root) {
    const OperationGuard guard(*this);
    auto manifest = loadLocked(root);
    const auto slot = indexOf(manifest, oldID);
    if (!slot) throw StoreError::notFound();
    const auto old = manifest.edits[*slot];
    if (newEdit.appliedAt) throw StoreError::modeInvalid("A replacement edit must be pending.");
    for (std::size_t index = 0; index < manifest.edits.size(); ++index) {
        const auto& other = manifest.edits[index];
        if (index != *slot && (other.id == newEdit.id || other.stagedFileName == newEdit.stagedFileName))
            throw StoreError::modeInvalid("Replacement edit ID or staged file name is already in use.");
    }
    if (old.appliedAt) throw StoreError::modeInvalid("Applied edits cannot be replaced.");
    const auto oldStaged = stagedURLLocked(old, root);
    const auto newStaged = stagedURLLocked(newEdit, root);
    if (standardized(oldStaged) == standardized(newStaged))
        throw StoreError::modeInvalid("Replacement must use a new staged file name.");
    ensureStorageDirectory(newStaged.parent_path());
    refuseLinkedRenderedFile(renderedFile);
    if (existsHere(newStaged)) throw StoreError::ioFailed("Replacement staged destination already exists.");
    moveRenderedFile(renderedFile, newStaged, "Failed to move replacement staged file: ");
    manifest.edits[*slot] = newEdit;
    saveOrMoveBack(manifest, newStaged, renderedFile, "replaceEdit", "replacement");
    try {
        step("replaceEdit.saved");
        removeStagedFile(oldStaged);
    } catch (const std::exception& error) {
        log.console("replaceEdit: could not delete old staged file " + old.stagedFileName + ": " +
                    describe(error));
    }
    removeCommitMarkerQuietly(oldID, root, "replaceEdit.fileRemoved");
}

void EditManifestStore::renameEditTarget(const std::string& id, const std::string& newTarget,
                                         const std::string& root) {
    const OperationGuard guard(*this);
    try {
        EditPathValidator::validatePath(newTarget);
    } catch (const EditPathValidatorError&) {
        throw StoreError::pathInvalid(newTarget);
    }
    auto manifest = loadLocked(root);
    const auto slot = indexOf(manifest, id);
    if (!slot) return;
    auto& edit = manifest.edits[*slot];
    if (edit.mode != EditMode::saveAsNew)
        throw StoreError::modeInvalid("renameEditTarget only allowed on saveAsNew edits");
    const auto normal = EditPathValidator::normalizePath(newTarget);
    // Applied edits count too: a path that one of them took stays taken.
    for (std::size_t index = 0; index < manifest.edits.size(); ++index)
        if (index != *slot && EditPathValidator::pathsEqual(manifest.edits[index].targetRelativePath, normal))
            throw StoreError::modeInvalid("Target path already used by another pending edit: " + normal);
    edit.targetRelativePath = normal;
    edit.applyError.reset();
    saveLocked(manifest);
    removeCommitMarkerQuietly(id, root, "renameEditTarget.saved");
}

void EditManifestStore::discardEdit(const std::string& id, const std::string& root) {
    const OperationGuard guard(*this);
    auto manifest = loadLocked(root);
    const auto slot = indexOf(manifest, id);
    if (!slot) return;
    const auto staged = stagedURLLocked(manifest.edits[*slot], root);
    manifest.edits.erase(manifest.edits.begin() + static_cast<std::ptrdiff_t>(*slot));
    saveLocked(manifest);
    std::optional<std::string> cleanupFailure;
    try {
        step("discardEdit.saved");
        if (existsHere(staged)) removeStagedFile(staged);
    } catch (const std::exception& error) {
        cleanupFailure = describe(error);
    }
    removeCommitMarkerQuietly(id, root, "discardEdit.fileRemoved");
    if (cleanupFailure)
        throw StoreError::ioFailed("Edit was discarded, but staged cleanup failed: " + *cleanupFailure);
}

void EditManifestStore::markApplied(const EditEntry& edit, const std::string& root) {
    const OperationGuard guard(*this);
    auto manifest = loadLocked(root);
    const auto slot = indexOf(manifest, edit.id);
    if (!slot) throw StoreError::notFound();
    auto& applied = manifest.edits[*slot];
    const auto staged = stagedURLLocked(applied, root);
    applied.appliedAt = std::chrono::floor<std::chrono::seconds>(Clock::now());
    applied.applyError.reset();
    const auto stagedName = applied.stagedFileName;
    saveLocked(manifest);
    try {
        step("markApplied.saved");
        removeStagedFile(staged);
    } catch (const std::exception& error) {
        log.console("markApplied: could not delete staged file " + stagedName + ": " + describe(error));
    }
    removeCommitMarkerQuietly(edit.id, root, "markApplied.fileRemoved");
}

void EditManifestStore::recordApplyError(const std::string& id, const std::optional<std::string>& message,
                                         const std::string& root) {
    const OperationGuard guard(*this);
    auto manifest = loadLocked(root);
    const auto slot = indexOf(manifest, id);
    if (!slot || manifest.edits[*slot].appliedAt) return;
    manifest.edits[*slot].applyError = message;
    saveLocked(manifest);
}

// ---- commit markers ---------------------------------------------------------------------------

void EditManifestStore::writeCommitMarker(const std::string& id, const std::string& root) {
    const OperationGuard guard(*this);
    const auto manifest = loadLocked(root);
    const auto slot = indexOf(manifest, id);
    if (!slot) throw StoreError::notFound();
    const auto& edit = manifest.edits[*slot];
    if (edit.appliedAt || edit.mode != EditMode::saveAsNew)
        throw StoreError::modeInvalid("Pending commit markers are only valid for pending saveAsNew edits.");
    if (readCommitMarkerLocked(edit, root)) return;
    ensureStorageDirectory(storageFolder(root) / markerFolderName);
    writeMarkerFile(edit, root);
    postChange();
}

void EditManifestStore::writeMarkerFile(const EditEntry& edit, const std::string& root) {
    const auto folder = storageFolder(root) / markerFolderName;
    const auto temporary = folder / ("marker-" + makeUuid() + ".tmp");
    const auto marker = markerPath(edit.id, root);
    const auto bytes =
        EditManifestCoding::encodeMarker({1, edit.id, edit.stagedFileName, edit.targetRelativePath});
    writeTemporary(temporary, bytes, "writeCommitMarker.tempWritten",
                   "Could not persist pending commit marker: ", [&] {
                       checkStoragePath(temporary, false);
                       renameNoReplace(temporary, marker);
                   });
}

std::optional<PendingCommitMarker> EditManifestStore::readCommitMarker(const EditEntry& edit,
                                                                       const std::string& root) {
    const OperationGuard guard(*this);
    return readCommitMarkerLocked(edit, root);
}

std::optional<PendingCommitMarker> EditManifestStore::readCommitMarkerLocked(const EditEntry& edit,
                                                                             const std::string& root) const {
    const auto path = markerPath(edit.id, root);
    checkStoragePath(path, true);
    if (!existsHere(path)) return std::nullopt;
    checkStoragePath(path, false);
    return mappingFailures([&] {
        auto marker = EditManifestCoding::decodeMarker(
            readWholeFile(path, {.followSymbolicLinks = false, .regularFileOnly = true}));
        EditValidation::validateMarker(marker, edit);
        return std::optional(marker);
    });
}

void EditManifestStore::removeCommitMarker(const std::string& id, const std::string& root) {
    const OperationGuard guard(*this);
    removeCommitMarkerLocked(id, root);
}

void EditManifestStore::removeCommitMarkerLocked(const std::string& id, const std::string& root) {
    const auto path = markerPath(id, root);
    checkStoragePath(path, true);
    if (!existsHere(path)) return;
    checkStoragePath(path, false);
    mappingFailures([&] {
        removeFile(path);
        return 0;
    });
    postChange();
}

void EditManifestStore::removeCommitMarkerQuietly(const std::string& id, const std::string& root,
                                                  std::string_view stepBefore) {
    try {
        step(stepBefore);
        removeCommitMarkerLocked(id, root);
    } catch (const std::exception&) {
        // A marker that outlives its edit's record is never read again.
    }
}

std::set<std::string> EditManifestStore::editsWithCommitMarkers(const std::string& root) {
    const OperationGuard guard(*this);
    std::set<std::string> ids;
    for (const auto& edit : loadLocked(root).edits)
        if (edit.isPending() && readCommitMarkerLocked(edit, root)) ids.insert(edit.id);
    return ids;
}

// ---- sweep ------------------------------------------------------------------------------------

void EditManifestStore::cleanupOrphanedStagedFiles(const std::string& root) {
    const OperationGuard guard(*this);
    const auto manifest = loadLocked(root);
    const auto folder = storageFolder(root) / stagedFolderName;
    checkStoragePath(folder, true);
    if (!existsHere(folder)) return;
    std::set<std::string> named;
    for (const auto& edit : manifest.edits) named.insert(edit.stagedFileName);
    std::vector<std::string> orphans;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        auto name = entry->path().filename().string();
        if (!name.starts_with('.') && !named.contains(name)) orphans.push_back(std::move(name));
    }
    if (error) orphans.clear();  // a folder that cannot be listed counts as empty
    for (const auto& name : orphans) {
        checkStoragePath(folder / name, false);
        try {
            step("cleanupOrphanedStagedFiles.removing");
            removeFile(folder / name);
        } catch (const std::exception& failure) {
            log.console("cleanupOrphanedStagedFiles: could not remove " + name + ": " + describe(failure));
        }
    }
}

}  // namespace tapekeep
