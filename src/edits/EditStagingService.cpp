#include "edits/EditStagingService.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "content/SampleReferences.h"
#include "core/Cancelled.h"
#include "core/Uuid.h"
#include "edits/EditManifestStoreError.h"
#include "edits/EditPathValidator.h"
#include "edits/SampleTrimmer.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

constexpr std::string_view renderPrefix = "m8-edit-";

bool hasWavExtension(std::string_view cardPath) {
    return fs::path(BrowseFileService::indexKey(cardPath)).extension() == ".wav";
}

// The rendered trim in the system's temporary folder, removed on the way out unless the store took it.
class TemporaryRender {
public:
    explicit TemporaryRender(const std::string& id)
        : path_(fs::temp_directory_path() / (std::string(renderPrefix) + id + ".wav")) {}
    ~TemporaryRender() {
        std::error_code ignored;  // nothing is left to report it to
        if (!handedOver_) fs::remove(path_, ignored);
    }
    TemporaryRender(const TemporaryRender&) = delete;
    TemporaryRender& operator=(const TemporaryRender&) = delete;

    [[nodiscard]] const fs::path& path() const { return path_; }
    void handOver() { handedOver_ = true; }

private:
    fs::path path_;
    bool handedOver_ = false;
};

}  // namespace

EditStagingService::EditStagingService(std::shared_ptr<EditManifestStore> store) : store_(std::move(store)) {}

void EditStagingService::setAfterRender(RenderHook hook) {
    afterRender_ = std::move(hook);
}

EditEntry EditStagingService::stage(const Request& request, const std::stop_token& token) const {
    throwIfCancelled(token);
    EditPathValidator::validatePath(request.sourceRelativePath);
    EditPathValidator::validatePath(request.targetRelativePath);
    if (!hasWavExtension(request.targetRelativePath))
        throw EditManifestStoreError::modeInvalid(
            "Trimmed samples must use a .wav filename. Use Save as New for other source formats.");
    if (request.mode == EditMode::saveAsNew)
        validateTarget(request.targetRelativePath, request.sourceRelativePath,
                       lowerCasedPaths(request.backupPaths), store_->pendingEdits(request.backupRootName),
                       request.replacingEditID);

    const std::string id = makeUuid();
    TemporaryRender rendered(id);
    SampleTrimmer::trim(request.source, rendered.path(), request.rangeLow, request.rangeHigh, token);
    if (afterRender_) afterRender_(rendered.path());
    throwIfCancelled(token);

    const auto edit = entryFor(request, id);
    // A store that fails has moved the file back, so the temporary file goes either way.
    if (request.replacingEditID)
        store_->replaceEdit(*request.replacingEditID, edit, rendered.path(), request.backupRootName);
    else
        store_->addEdit(edit, rendered.path(), request.backupRootName);
    rendered.handOver();
    return edit;
}

EditEntry EditStagingService::entryFor(const Request& request, const std::string& id) const {
    EditEntry edit;
    edit.id = id;
    edit.kind = EditKind::sampleTrim;
    edit.mode = request.mode;
    edit.createdAt = std::chrono::floor<std::chrono::seconds>(Clock::now());
    edit.sourceVersionFolder = request.sourceVersionFolder;
    edit.sourceRelativePath = request.sourceRelativePath;
    edit.targetRelativePath = request.targetRelativePath;
    edit.stagedFileName = id + ".wav";
    // A new file is used by no song yet, and the source it leaves alone keeps its users.
    if (request.mode == EditMode::overwrite) edit.affectedSongs = request.affectedSongs;
    edit.parameters.sampleTrim = {request.rangeLow, request.rangeHigh, request.originalDuration};
    return edit;
}

void EditStagingService::validateTarget(std::string_view target, std::string_view source,
                                        const std::set<std::string>& lowerCasedBackupPaths,
                                        const std::vector<EditEntry>& pendingEdits,
                                        const std::optional<std::string>& replacingEditID) {
    EditPathValidator::validatePath(target);
    const auto key = BrowseFileService::indexKey(target);
    if (!key.starts_with("/samples/") || !hasWavExtension(key)) throw TargetError::outsideSamples();
    if (EditPathValidator::pathsEqual(target, source)) throw TargetError::sameAsSource();
    if (lowerCasedBackupPaths.contains(key)) throw TargetError::existsInBackup();
    for (const auto& edit : pendingEdits) {
        if (edit.id != replacingEditID && EditPathValidator::pathsEqual(edit.targetRelativePath, target))
            throw TargetError::pendingTarget();
    }
}

std::set<std::string> EditStagingService::lowerCasedPaths(const std::vector<std::string>& paths) {
    std::set<std::string> keys;
    for (const auto& path : paths) keys.insert(BrowseFileService::indexKey(path));
    return keys;
}

void EditStagingService::sweepAbandonedRenders(const fs::path& temporaryFolder, fs::file_time_type now) {
    std::error_code error;
    for (fs::directory_iterator entries(temporaryFolder, error);
         !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const fs::path& entry = entries->path();
        const std::string name = entry.filename().string();
        std::error_code ignored;
        if (!name.starts_with(renderPrefix) || !name.ends_with(".wav") ||
            !fs::is_regular_file(fs::symlink_status(entry, ignored)))
            continue;
        const auto written = fs::last_write_time(entry, ignored);
        if (!ignored && now - written > abandonedAfter) fs::remove(entry, ignored);
    }
}

}  // namespace tapekeep
