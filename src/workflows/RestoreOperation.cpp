#include "workflows/RestoreOperation.h"

#include "backup/BackupRepository.h"
#include "backup/RsyncCommands.h"
#include "backup/SelectiveBackup.h"
#include "core/Cancelled.h"
#include "core/Log.h"
#include "core/TestPause.h"
#include "platform/MountTable.h"
#include "workflows/ItemizedOutput.h"
#include "workflows/RestoreSelection.h"

namespace tapekeep {
namespace fs = std::filesystem;

// The NUL-separated list that rsync reads the paths from, removed when the run is over.
class RestoreOperation::FileList {
public:
    explicit FileList(const std::vector<std::string>& paths) : path_(SelectiveBackup::writeFileList(paths)) {}
    ~FileList() {
        std::error_code ignored;
        fs::remove(path_, ignored);
    }
    FileList(const FileList&) = delete;
    FileList& operator=(const FileList&) = delete;
    [[nodiscard]] const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

namespace {

const Log& log() {
    static const Log instance("RestoreOperation");
    return instance;
}

// A FUSE daemon may not take times on the card's root: fusefat, for one, stops serving the card.
bool isFuseMount(const fs::path& root) {
    try {
        const auto* mount = MountTable::readLive().mountContaining(root);
        return mount && mount->fileSystemType.starts_with("fuse");
    } catch (const std::exception&) {
        return true;  // unknown: leave the root's time alone rather than risk the card
    }
}

// The card's root tells when it was last written: a restore counts as that.
void touchCardRoot(const fs::path& root) {
    if (isFuseMount(root)) return;
    std::error_code error;
    fs::last_write_time(root, fs::file_time_type::clock::now(), error);
    if (error) log().info("Could not set the time of " + root.string() + ": " + error.message());
}

}  // namespace

void RestoreOperation::requireMounted(const SDCard& card, const Validator& validate, std::stop_token token) {
    throwIfCancelled(token);
    const ValidateResult result = validate(card.diskUtilUUID, token);
    throwIfCancelled(token);
    if (!result.isFound() || result.card()->mountPath != card.mountPath)
        throw RestoreError::volumeUnmounted();
}

std::function<void(const SDCard& card, std::stop_token token)> RestoreOperation::mountedCheck(
    Validator validate) {
    return [validate = std::move(validate)](const SDCard& card, std::stop_token token) {
        requireMounted(card, validate, std::move(token));
    };
}

void RestoreOperation::requireVersionFolder(const fs::path& version) {
    if (!BackupRepository::isRealDirectory(version) || !version.filename().string().starts_with("backup-"))
        throw RestoreError::backupNotFound();
}

std::optional<RestoreError> RestoreOperation::resultOfExitStatus(
    int status, const std::function<ValidateResult()>& validateAgain) {
    switch (status) {
        case 0:
            return std::nullopt;
        case 20:
        case 143:
            return RestoreError::cancelled();
        case 23:
            return RestoreError::partialTransfer();
        case 24:
            return RestoreError::sourceFilesVanished();
        default:
            if (validateAgain().kind() == ValidateResult::Kind::notFound)
                return RestoreError::volumeDisconnectedMidRun();
            return RestoreError::rsyncFailed(status);
    }
}

// The checks before any rsync, and the list of what is chosen (none for the whole version). The log
// line for songs restored one by one goes to onLine.
std::unique_ptr<RestoreOperation::FileList> RestoreOperation::prepare(const Request& request,
                                                                      const LineHandler& onLine,
                                                                      const Dependencies& dependencies,
                                                                      std::stop_token token) {
    requireMounted(request.card, dependencies.validate, token);
    requireVersionFolder(request.version);
    const auto plan = RestoreSelection::planFor(request.choice);
    if (RestoreSelection::isEmpty(plan)) throw Error("Nothing selected to restore.");
    if (!plan) return nullptr;
    const auto files = RestoreSelection::filesFor(*plan, request.version);
    if (files.songCount > 0) onLine(RestoreSelection::songsMessage(files));
    if (!files.missingSamples.empty()) onLine(SelectiveBackup::missingSamplesMessage(files.missingSamples));
    return std::make_unique<FileList>(files.paths);
}

std::vector<FileDiff> RestoreOperation::preview(const Request& request, const Dependencies& dependencies,
                                                std::stop_token token) {
    const auto list = prepare(
        request, [](const std::string&) {}, dependencies, token);
    const auto arguments =
        list ? RsyncCommands::restorePreviewFromListArguments(request.version, request.card.mountPath,
                                                              list->path())
             : RsyncCommands::restorePreviewArguments(request.version, request.card.mountPath, std::nullopt);
    auto detection = ItemizedOutput::detectVersionMeanwhile(request.rsyncPath, token);
    std::vector<std::string> lines;  // read only once rsync has ended
    const int status = dependencies.runRsync(
        request.rsyncPath, arguments, [&lines](const std::string& line) { lines.push_back(line); }, token);
    throwIfCancelled(token);
    if (status != 0) throw RestoreError::rsyncFailed(status);
    return ItemizedOutput::read(lines, std::move(detection), dependencies.logStore, log(), "Restore preview",
                                token);
}

std::optional<RestoreError> RestoreOperation::run(const Request& request, const LineHandler& onLine,
                                                  const Dependencies& dependencies, std::stop_token token) {
    TestPause::at("restore-checks", token);
    const auto list = prepare(request, onLine, dependencies, token);
    const auto arguments =
        list ? RsyncCommands::restoreFromListArguments(request.version, request.card.mountPath, list->path())
             : RsyncCommands::wholeRestoreArguments(request.version, request.card.mountPath);
    std::vector<std::string> lines;
    const auto keepLog = [&] { (void)dependencies.logStore.write(ItemizedOutput::joined(lines)); };
    int status = 0;
    try {
        status = dependencies.runRsync(
            request.rsyncPath, arguments,
            [&](const std::string& line) {
                lines.push_back(line);
                onLine(line);
            },
            token);
    } catch (...) {
        keepLog();
        throw;
    }
    keepLog();
    throwIfCancelled(token);
    auto result =
        resultOfExitStatus(status, [&] { return dependencies.validate(request.card.diskUtilUUID, token); });
    if (!result) touchCardRoot(request.card.mountPath);
    return result;
}

}  // namespace tapekeep
