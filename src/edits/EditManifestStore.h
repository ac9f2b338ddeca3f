#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/FileDescriptor.h"
#include "edits/EditEntry.h"
#include "edits/EditManifest.h"
#include "edits/PendingCommitMarker.h"

namespace tapekeep {

// The one writer of the edit storage of a base folder: {base}/.edits/{root}/ with manifest.json,
// staged/ and commit-pending/. Every path it touches is walked first and refused when any folder on
// the way is a symbolic link. Steps are ordered so that a crash or a full disk between any two of
// them leaves a manifest that loads: files go in before the manifest names them, records leave the
// manifest before their files go. A failure after a manifest save never undoes the save.
//
// A serial service: each public operation holds the one mutex for its whole run; any thread. A
// second writer outside this store (another store, another process) is caught by the stale test of
// save. Every change posts "Tapekeep.editsDidChange" with the base folder as its object, on the
// calling thread, before the operation returns. Errors are EditManifestStoreError.
class EditManifestStore {
public:
    // Runs once in every save, just before the temporary manifest is made; a throw aborts the save.
    using WriteHook = std::function<void()>;
    // Runs at each named step of the operations (see the steps in the .cpp); a throw there is the
    // failure of the step that follows, an _exit a crash between the two. For fault injection.
    using StepHook = std::function<void(std::string_view step)>;

    explicit EditManifestStore(std::filesystem::path baseURL);

    [[nodiscard]] const std::filesystem::path& baseURL() const { return baseURL_; }
    void setBeforeManifestWrite(WriteHook hook);
    void setStepHook(StepHook hook);

    // An absent manifest is an empty one; nothing is created and nothing repaired.
    EditManifest load(const std::string& root);
    void save(const EditManifest& manifest);
    std::vector<EditEntry> pendingEdits(const std::string& root);

    // Moves the rendered file into staged/, then names it in the manifest; a failed save moves it back.
    void addEdit(const EditEntry& edit, const std::filesystem::path& renderedFile, const std::string& root);
    // One pending edit for another, in its slot; either the old one stands or the new one does.
    void replaceEdit(const std::string& oldID, const EditEntry& newEdit,
                     const std::filesystem::path& renderedFile, const std::string& root);
    void renameEditTarget(const std::string& id, const std::string& newTarget, const std::string& root);
    void discardEdit(const std::string& id, const std::string& root);
    void markApplied(const EditEntry& edit, const std::string& root);
    void recordApplyError(const std::string& id, const std::optional<std::string>& message,
                          const std::string& root);

    void writeCommitMarker(const std::string& id, const std::string& root);
    std::optional<PendingCommitMarker> readCommitMarker(const EditEntry& edit, const std::string& root);
    void removeCommitMarker(const std::string& id, const std::string& root);
    std::set<std::string> editsWithCommitMarkers(const std::string& root);

    std::filesystem::path stagedURL(const EditEntry& edit, const std::string& root);
    // Removes the files of staged/ that no edit names, pending or applied; hidden files stay.
    void cleanupOrphanedStagedFiles(const std::string& root);

private:
    // What the stale test compares. The file system's clock ticks coarsely, so two saves within
    // one tick share a date; every save makes a new file, so they never share the file.
    struct FileStamp {
        std::chrono::nanoseconds date;
        dev_t device;
        ino_t inode;
    };

    static std::optional<FileStamp> stampOf(const std::filesystem::path& file);
    EditManifest loadLocked(const std::string& root);
    void saveLocked(const EditManifest& manifest);
    // Writes a new temporary file, then does what must follow; on any failure the temporary goes
    // and the failure is reported as ioFailed with the text in front.
    void writeTemporary(const std::filesystem::path& temporary, const std::string& bytes,
                        std::string_view written, const std::string& failureText,
                        const std::function<void()>& thenDo) const;
    void writeManifestFile(const std::filesystem::path& manifest, const std::string& bytes);
    void testStaleness(const std::string& root, const std::filesystem::path& manifest) const;
    std::filesystem::path stagedURLLocked(const EditEntry& edit, const std::string& root) const;
    void moveRenderedFile(const std::filesystem::path& renderedFile, const std::filesystem::path& staged,
                          const char* failureText) const;
    void saveOrMoveBack(const EditManifest& manifest, const std::filesystem::path& staged,
                        const std::filesystem::path& renderedFile, const std::string& operation,
                        const char* rollbackName);
    void removeStagedFile(const std::filesystem::path& staged) const;
    std::optional<PendingCommitMarker> readCommitMarkerLocked(const EditEntry& edit,
                                                              const std::string& root) const;
    void writeMarkerFile(const EditEntry& edit, const std::string& root);
    void removeCommitMarkerLocked(const std::string& id, const std::string& root);
    void removeCommitMarkerQuietly(const std::string& id, const std::string& root,
                                   std::string_view stepBefore);

    void checkStoragePath(const std::filesystem::path& url, bool missingAllowed) const;
    void ensureStorageDirectory(const std::filesystem::path& folder) const;
    [[nodiscard]] std::filesystem::path storageFolder(const std::string& root) const;
    [[nodiscard]] std::filesystem::path markerPath(const std::string& id, const std::string& root) const;
    void step(std::string_view name) const;
    void postChange() const;

    const std::filesystem::path baseURL_;  // constant after construction
    // Held through each public operation: the mutex against this process's other threads, and from
    // the first read of a storage folder to the end, an flock on that folder against other
    // processes, so that no read, change and write of the manifest interleaves with another's.
    class OperationGuard {
    public:
        explicit OperationGuard(EditManifestStore& store) : store_(store), lock_(store.mutex_) {}
        ~OperationGuard() { store_.folderLock_.reset(); }
        OperationGuard(const OperationGuard&) = delete;
        OperationGuard& operator=(const OperationGuard&) = delete;

    private:
        EditManifestStore& store_;
        std::lock_guard<std::mutex> lock_;
    };
    // Takes the flock on the folder unless this operation holds it already.
    void holdFolderLock(const std::filesystem::path& folder);

    std::mutex mutex_;
    std::optional<FileDescriptor> folderLock_;  // guarded by mutex_
    WriteHook beforeManifestWrite_;             // guarded by mutex_
    StepHook stepHook_;                         // guarded by mutex_
    // The manifest of each root as last read or written here; nothing when it did not exist then.
    std::map<std::string, std::optional<FileStamp>> mtimes_;  // guarded by mutex_
};

}  // namespace tapekeep
