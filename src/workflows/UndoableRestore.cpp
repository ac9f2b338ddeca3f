#include "workflows/UndoableRestore.h"

#include <fstream>

#include "backup/BackupRepository.h"
#include "backup/RestoreUndoError.h"
#include "backup/RsyncCommands.h"
#include "backup/SelectiveBackup.h"
#include "core/BackupSet.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/TestPause.h"
#include "workflows/CardComparison.h"
#include "workflows/ItemizedOutput.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// The --files-from list of an undo, removed when the run is over.
struct TemporaryList {
    fs::path path;
    ~TemporaryList() {
        std::error_code ignored;
        fs::remove(path, ignored);
    }
};

// The safety backup is a whole-card version. It never rotates: rotation could delete the very
// version about to be restored, and the next ordinary backup rotates as usual.
BackupRequest safetyRequest(BackupRequest request) {
    request.selectedFolders.clear();
    request.selectedSongs.clear();
    request.selective = false;
    request.rotate = false;
    return request;
}

// The version the record names: a fresh backup of the card, or its latest version when the card is
// up to date with it. made is set only for a fresh one.
fs::path takeSafetyVersion(const BackupRequest& backup, const RestoreOperation::LineHandler& onLine,
                           const UndoableRestore::Dependencies& dependencies, std::stop_token token,
                           std::optional<fs::path>& made) {
    try {
        if (!UndoableRestore::needsSafetyBackup(backup.card, backup.baseURL, token)) {
            onLine("The card matches its latest version: no safety backup is needed.");
            if (auto latest = BackupRepository::resolvePreviousVersion(
                    UndoableRestore::setRootOf(backup.card, backup.baseURL)))
                return *latest;
        }
        onLine("Backing up the card before the restore, so that it can be undone…");
        const auto outcome = BackupOperation::run(
            safetyRequest(backup), onLine, [](const TransferEvent&) {}, dependencies.restore.runRsync,
            dependencies.validateVolume, token, dependencies.environment);
        made = outcome.versionURL;
        onLine("Safety version: " + outcome.versionURL.string());
        return outcome.versionURL;
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        throw RestoreUndoError::safetyBackupFailed(describe(error));
    }
}

RestoreUndoRecord recordOf(const fs::path& safetyVersion, const fs::path& restoredVersion,
                           const std::vector<FileDiff>& rows) {
    RestoreUndoRecord record{safetyVersion.filename().string(), restoredVersion, {}, {}};
    for (const auto& row : rows) {
        if (row.kind == FileDiff::Kind::added) record.added.push_back(row.path);
        if (row.kind == FileDiff::Kind::modified) record.changed.push_back(row.path);
    }
    return record;
}

bool sameContent(const fs::path& a, const fs::path& b) {
    std::error_code error;
    const auto sizeA = fs::file_size(a, error);
    if (error) return false;
    const auto sizeB = fs::file_size(b, error);
    if (error || sizeA != sizeB) return false;
    std::ifstream first(a, std::ios::binary), second(b, std::ios::binary);
    std::vector<char> bufferA(1 << 16), bufferB(1 << 16);
    while (first && second) {
        first.read(bufferA.data(), static_cast<std::streamsize>(bufferA.size()));
        second.read(bufferB.data(), static_cast<std::streamsize>(bufferB.size()));
        if (first.gcount() != second.gcount()) return false;
        if (!std::equal(bufferA.begin(), bufferA.begin() + first.gcount(), bufferB.begin())) return false;
    }
    return first.eof() && second.eof();
}

// The files the restore replaced, back as the safety version has them, whatever their times and
// whatever happened to them since: that is what undoing the restore means, and the version the
// restore wrote them from still holds what it wrote.
void putBackChanged(const SDCard& card, const fs::path& safetyVersion, const std::vector<std::string>& paths,
                    const std::string& rsyncPath, const RestoreOperation::LineHandler& onLine,
                    const RestoreOperation::Dependencies& dependencies, std::stop_token token) {
    if (paths.empty()) return;
    const TemporaryList list{SelectiveBackup::writeFileList(paths)};
    std::vector<std::string> lines;
    const int status = dependencies.runRsync(
        rsyncPath, RsyncCommands::undoRestoreArguments(safetyVersion, card.mountPath, list.path),
        [&](const std::string& line) {
            lines.push_back(line);
            onLine(line);
        },
        token);
    (void)dependencies.logStore.write(ItemizedOutput::joined(lines));
    throwIfCancelled(token);
    if (auto failure = RestoreOperation::resultOfExitStatus(
            status, [&] { return dependencies.validate(card.diskUtilUUID, token); }))
        throw *failure;
}

// Folders left empty by removing an added file go too, unless the safety version has them.
void removeEmptyFolders(const fs::path& cardRoot, fs::path folder, const fs::path& safetyVersion) {
    std::error_code error;
    for (; !folder.empty(); folder = folder.parent_path()) {
        if (fs::exists(safetyVersion / folder, error)) return;
        const fs::path onCard = cardRoot / folder;
        if (!fs::is_directory(fs::symlink_status(onCard, error)) || !fs::is_empty(onCard, error)) return;
        if (!fs::remove(onCard, error)) return;
    }
}

// The files the restore added go, but only while they still hold what the restore wrote: a file the
// user changed since is their work, and an undo never deletes work. It is kept and named instead.
void removeAdded(const SDCard& card, const RestoreUndoRecord& record, const fs::path& safetyVersion,
                 const RestoreOperation::LineHandler& onLine, std::stop_token token) {
    for (const auto& path : record.added) {
        throwIfCancelled(token);
        SelectiveBackup::validateRelativePath(path);
        const fs::path onCard = card.mountPath / path;
        std::error_code error;
        if (!fs::is_regular_file(fs::symlink_status(onCard, error))) continue;  // already gone
        if (!fs::exists(record.restoredVersion / path, error)) {
            onLine("Kept " + path + ": the restored version is gone, so a later change cannot be ruled out.");
            continue;
        }
        if (!sameContent(onCard, record.restoredVersion / path)) {
            onLine("Kept " + path + ": it is no longer what the restore wrote.");
            continue;
        }
        fs::remove(onCard);
        onLine("Removed " + path);
        removeEmptyFolders(card.mountPath, fs::path(path).parent_path(), safetyVersion);
    }
}

}  // namespace

fs::path UndoableRestore::setRootOf(const SDCard& card, const fs::path& baseFolder) {
    return baseFolder / backupSetFolderName(card.volumeName, card.diskUtilUUID);
}

bool UndoableRestore::needsSafetyBackup(const SDCard& card, const fs::path& baseFolder,
                                        std::stop_token token) {
    return CardComparison::compare(card, baseFolder, token).freshness != BackupFreshness::upToDate();
}

UndoableRestore::Result UndoableRestore::run(const Request& request,
                                             const RestoreOperation::LineHandler& onLine,
                                             const Dependencies& dependencies, std::stop_token token) {
    Result result;
    const fs::path setRoot = setRootOf(request.restore.card, request.baseFolder);
    if (!request.safetyBackup) {
        // This restore cannot be undone, and undoing an older one over it would mix the two.
        RestoreUndoRecord::remove(setRoot);
        result.failure = RestoreOperation::run(request.restore, onLine, dependencies.restore, token);
        return result;
    }
    RestoreOperation::requireMounted(request.restore.card, dependencies.restore.validate, token);
    RestoreOperation::requireVersionFolder(request.restore.version);
    const fs::path safety =
        takeSafetyVersion(*request.safetyBackup, onLine, dependencies, token, result.safetyVersion);
    // Taken under the lease right after the backup, so it names exactly what the run will touch.
    const auto rows = RestoreOperation::preview(request.restore, dependencies.restore, token);
    recordOf(safety, request.restore.version, rows).write(setRoot);
    result.failure = RestoreOperation::run(request.restore, onLine, dependencies.restore, token);
    return result;
}

fs::path UndoableRestore::undo(const SDCard& card, const fs::path& baseFolder, const std::string& rsyncPath,
                               const RestoreOperation::LineHandler& onLine,
                               const RestoreOperation::Dependencies& dependencies, std::stop_token token) {
    const fs::path setRoot = setRootOf(card, baseFolder);
    const auto record = RestoreUndoRecord::read(setRoot);
    if (!record) throw RestoreUndoError::nothingToUndo();
    TestPause::at("undo-checks", token);
    RestoreOperation::requireMounted(card, dependencies.validate, token);
    const fs::path safety = setRoot / record->safetyVersion;
    if (!BackupRepository::isRealDirectory(safety)) throw RestoreUndoError::safetyVersionGone(safety);
    for (const auto& path : record->changed) SelectiveBackup::validateRelativePath(path);
    putBackChanged(card, safety, record->changed, rsyncPath, onLine, dependencies, token);
    removeAdded(card, *record, safety, onLine, token);
    RestoreUndoRecord::remove(setRoot);
    return safety;
}

}  // namespace tapekeep
