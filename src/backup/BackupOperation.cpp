#include "backup/BackupOperation.h"

#include <cerrno>
#include <future>

#include "backup/BackupOperationError.h"
#include "backup/BackupRepository.h"
#include "backup/BackupSetLock.h"
#include "backup/LatestLinkFailure.h"
#include "backup/RotationGuard.h"
#include "backup/RsyncCommands.h"
#include "backup/RsyncDiffParser.h"
#include "backup/RsyncProcess.h"
#include "backup/RsyncVersion.h"
#include "backup/SelectiveBackup.h"
#include "core/AtomicFile.h"
#include "core/BackupSet.h"
#include "core/Cancelled.h"
#include "core/Formatting.h"
#include "core/Log.h"
#include "core/PosixError.h"
#include "core/TestPause.h"
#include "core/Utf8.h"
#include "platform/FileTimes.h"
#include "platform/FreeSpace.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

const Log logger("BackupOperation");

fs::path canonicalForComparison(const fs::path& path) {
    std::error_code error;
    fs::path resolved = fs::weakly_canonical(path, error);
    return (error ? path : resolved).lexically_normal();
}

std::string withTrailingSlash(const fs::path& path) {
    std::string text = path.string();
    if (text.empty() || text.back() != '/') text += '/';
    return text;
}

bool pathsOverlap(const fs::path& a, const fs::path& b) {
    const std::string left = withTrailingSlash(canonicalForComparison(a));
    const std::string right = withTrailingSlash(canonicalForComparison(b));
    return left == right || left.starts_with(right) || right.starts_with(left);
}

// rsync names a full destination in its own error lines ("rsync: [receiver] write failed on …:
// No space left on device (28)"); other lines are file names, which may say anything.
bool reportsFullDisk(const std::string& line) {
    return line.starts_with("rsync") && line.find("No space left on device") != std::string::npos;
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
    std::string result;
    for (const auto& part : parts) result += (result.empty() ? "" : separator) + part;
    return result;
}

// The state of one run: the request, its handlers and the run-local values they share.
class BackupRun {
public:
    BackupRun(const BackupRequest& request, const BackupOperation::LogHandler& log,
              const BackupOperation::EventHandler& onEvent, const BackupOperation::RsyncRunner& runRsync,
              const BackupOperation::VolumeValidator& validateVolume, std::stop_token token,
              const BackupOperation::Environment& environment)
        : request_(request),
          log_(log),
          onEvent_(onEvent),
          runRsync_(runRsync),
          validateVolume_(validateVolume),
          token_(std::move(token)),
          selection_(request),
          environment_(environment),
          repository_(request.baseURL),
          setRoot_(request.baseURL /
                   backupSetFolderName(request.card.volumeName, request.card.diskUtilUUID)) {}

    BackupOutcome run() {
        prepare();
        publishedVersion_ = stageAndPublish();
        if (request_.rotate) rotateAfterPublish();
        return BackupOutcome{publishedVersion_,
                             warnings_.empty() ? std::nullopt : std::optional(joined(warnings_, " "))};
    }

private:
    // Steps before anything is written: identity, overlap, rsync class, link base, old remains.
    void prepare() {
        throwIfCancelled(token_);
        validate();
        if (pathsOverlap(request_.card.mountPath, setRoot_))
            throw BackupOperationError::message("Source and destination must not overlap.");
        classifyRsync();
        // Before the lock file, so that another card's set gets nothing written into it.
        BackupRepository::checkSetBelongsTo(setRoot_, request_.card.diskUtilUUID);
        holdSet();
        resolveLinkBase();
        if (rsyncClass_.kind() == RsyncVersion::Kind::systemOrOpenrsync && linkBase_)
            log("System rsync: using independent copies to preserve backup contents and timestamps.");
        if (partial_ && request_.selectedFolders.empty() && request_.selectedSongs.empty())
            throw BackupOperationError::message("Nothing selected to back up.");
        if (request_.selective) selection_ = SelectiveBackup::selectionOnCard(request_);
        removeEarlierIncomplete();
    }

    void classifyRsync() {
        rsyncClass_ = RsyncVersion::detect(request_.rsyncPath, token_);
        if (rsyncClass_.kind() == RsyncVersion::Kind::unsupported)
            throw BackupOperationError::message(
                "Unsupported rsync version. Select a supported rsync in Settings.");
        canShowProgress_ = rsyncClass_.hasFullFeatures();
    }

    // Held before `latest` is read, so that no other run publishes or rotates under this one.
    void holdSet() {
        try {
            setLock_.emplace(setRoot_);
        } catch (const PosixError& error) {
            logger.error("Backing up without the set's lock: " + error.description());
        }
    }

    void resolveLinkBase() {
        previous_ = BackupRepository::resolvePreviousVersion(setRoot_);
        if (!request_.forceFullCopy) linkBase_ = previous_;
        partial_ = request_.selective && linkBase_.has_value();
        if (linkBase_ && rsyncClass_.hasFullFeatures()) linkDest_ = linkBase_;
    }

    void removeEarlierIncomplete() {
        try {
            const auto removed = setLock_
                                     ? repository_.removeIncomplete(*setLock_, environment_.now(), token_)
                                     : repository_.removeIncomplete(setRoot_, environment_.now(), token_);
            if (!removed.empty())
                log("Removed " + std::to_string(removed.size()) +
                    " incomplete backup(s) left by earlier failed runs.");
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            log(std::string("Could not remove earlier incomplete backups: ") + error.what());
        }
    }

    // From the creation of the staging folder to a published version; every failure on the way goes
    // through the failure rule and is then rethrown unchanged.
    fs::path stageAndPublish() {
        staging_ = repository_.createStaging(setRoot_);
        TestPause::at("staging-created");
        try {
            estimateAndCheckSpace();
            transferAndVerify();
            removeFileList();
            finishStaging();
            return publish();
        } catch (...) {
            removeFileList();
            applyFailureRule(std::current_exception());
            throw;
        }
    }

    void estimateAndCheckSpace() {
        log("Checking disk space…");
        std::vector<std::string> lines;
        runChecked(RsyncCommands::estimateArguments(request_.card.mountPath, staging_, linkDest_),
                   [&lines](const std::string& line) {
                       lines.push_back(line);
                       TestPause::at("estimate-pass");
                   });
        std::optional<std::int64_t> estimatedBytes, estimatedFiles;
        for (const auto& line : lines) {
            if (!estimatedBytes && line.starts_with("Total transferred file size"))
                estimatedBytes = BackupOperation::parseStatsNumber(line, true);
            if (!estimatedFiles && (line.starts_with("Number of regular files transferred") ||
                                    line.starts_with("Number of files transferred")))
                estimatedFiles = BackupOperation::parseStatsNumber(line, false);
        }
        checkSpace(estimatedBytes);
        report(TransferEvent::expectedBytes(partial_ ? std::nullopt : estimatedBytes));
        report(TransferEvent::expectedFiles(partial_ ? std::nullopt : estimatedFiles));
    }

    void checkSpace(std::optional<std::int64_t> estimatedBytes) {
        std::optional<std::int64_t> available;
        try {
            available = environment_.availableBytes(staging_);
        } catch (const std::exception&) {
        }
        if (!estimatedBytes || !available) {
            log("Disk space check skipped: rsync did not report a transfer size.");
            return;
        }
        log("Estimated transfer: " + formatByteCount(*estimatedBytes) +
            ", available: " + formatByteCount(*available) + ".");
        if (*available < *estimatedBytes + BackupOperation::requiredHeadroomBytes)
            throw BackupOperationError::message("Not enough disk space for this backup.");
    }

    // The copy, then (if asked) its check by checksum; a failed check may start over once.
    void transferAndVerify() {
        throwIfCancelled(token_);
        validate();
        const int maxAttempts = request_.verify && request_.mismatchAction == "retry" ? 2 : 1;
        for (int attempt = 1;; ++attempt) {
            transfer();
            if (!request_.verify) return;
            try {
                verifyCopy();
                return;
            } catch (const Cancelled&) {
                throw;
            } catch (const std::exception& error) {
                if (attempt >= maxAttempts) throw BackupOperationError::verification(error.what());
            }
            startOver();
        }
    }

    void transfer() {
        const BackupOperation::LineHandler onLine = [this](const std::string& line) {
            log(line);
            TestPause::at("transfer-pass");
        };
        for (const auto& arguments : transferPlan()) runChecked(arguments, onLine);
        if (partial_) SelectiveBackup::requireSelectionIn(staging_, selection_);
        report(TransferEvent::transferFinished());
        validate();
    }

    std::vector<std::vector<std::string>> transferPlan() {
        if (!partial_)
            return {RsyncCommands::fullBackupArguments(request_.card.mountPath, staging_, linkDest_,
                                                       canShowProgress_)};
        return selectivePlan();
    }

    // A selective run still ends as a whole card: staging first becomes an image of the previous
    // version, and then only what was selected is copied over it.
    std::vector<std::vector<std::string>> selectivePlan() {
        log("Creating base snapshot from previous backup…");
        runChecked(RsyncCommands::baseSnapshotArguments(*linkBase_, staging_, rsyncClass_.hasFullFeatures()),
                   log_);
        const SelectionResult selection = SelectiveBackup::resolveSelectedFiles(selection_);
        if (!selection.missing.empty()) log(SelectiveBackup::missingSamplesMessage(selection.missing));
        if (!selection.throughLinks.empty())
            log(SelectiveBackup::linkedSamplesMessage(selection.throughLinks));
        if (!selection.files.empty()) {
            for (const auto& file : selection.files) SelectiveBackup::validateRelativePath(file);
            fileList_ = SelectiveBackup::writeFileList(selection.files);
        }
        std::vector<std::vector<std::string>> plan;
        const fs::path& card = request_.card.mountPath;
        for (const auto& folder : selection_.selectedFolders)
            SelectiveBackup::prepareSelectionPath(folder, staging_);
        if (!selection_.selectedFolders.empty())
            plan.push_back(RsyncCommands::folderPassArguments(card, staging_, selection_.selectedFolders,
                                                              canShowProgress_, linkDest_));
        if (fileList_) {
            for (const auto& file : selection.files) SelectiveBackup::prepareSelectionPath(file, staging_);
            plan.push_back(RsyncCommands::fileListPassArguments(card, staging_, *fileList_, canShowProgress_,
                                                                linkDest_));
        }
        return plan;
    }

    // rsync compares staging with the card by content; any difference, folders included, fails.
    void verifyCopy() {
        const fs::path& card = request_.card.mountPath;
        std::vector<std::vector<std::string>> lists;
        if (!partial_)
            lists.push_back(RsyncCommands::verifyArguments(card, staging_, std::nullopt, std::nullopt));
        if (partial_ && !selection_.selectedFolders.empty())
            lists.push_back(
                RsyncCommands::verifyArguments(card, staging_, selection_.selectedFolders, std::nullopt));
        if (fileList_)
            lists.push_back(RsyncCommands::verifyArguments(card, staging_, std::nullopt, *fileList_));
        log("Verifying selected backup content with checksums…");
        for (const auto& arguments : lists) verifyWith(arguments);
        log("Verification passed — selected files match.");
    }

    void verifyWith(const std::vector<std::string>& arguments) {
        std::vector<std::string> lines;
        throwIfCancelled(token_);
        validate();
        const int status = runRsync_(
            request_.rsyncPath, arguments,
            [&](const std::string& line) {
                lines.push_back(line);
                log("[verify] " + line);
            },
            token_);
        throwIfCancelled(token_);
        if (status != 0) throw BackupOperationError::verification("rsync exit " + std::to_string(status));
        const auto differences = RsyncDiffParser::parse(lines, rsyncClass_, true);
        if (!differences.empty())
            throw BackupOperationError::verification(std::to_string(differences.size()) +
                                                     " file or folder difference(s)");
    }

    // The one retry: a fresh, empty staging folder and the transfer from its start. The estimate
    // and its events are not repeated.
    void startOver() {
        removeFileList();
        throwIfCancelled(token_);
        validate();
        log("Retrying backup and verification once…");
        fs::remove_all(staging_);
        if (!fs::create_directory(staging_))
            throw BackupOperationError::message("Could not recreate " + staging_.string() + ".");
    }

    void removeFileList() {
        if (!fileList_) return;
        std::error_code ignored;  // a list left in the temporary folder harms nothing
        fs::remove(*fileList_, ignored);
        fileList_.reset();
    }

    void finishStaging() {
        throwIfCancelled(token_);
        validate();
        setModificationTimeToNow(staging_);
    }

    fs::path publish() {
        try {
            repository_.claimSet(setRoot_, request_.card);
            return repository_.publishStaging(staging_, setRoot_, environment_.now(), token_);
        } catch (const LatestLinkFailure& failure) {
            warn("Backup saved, but the \"latest\" link could not be updated: " +
                 failure.underlyingDescription());
            return failure.versionURL();
        }
    }

    // After publishing the backup exists: nothing here may fail the run, only add a warning.
    void rotateAfterPublish() {
        if (auto warning = guardRotation()) {
            warn(*warning);
            return;
        }
        try {
            repository_.rotate(setRoot_, request_.keepCount, token_);
        } catch (const Cancelled&) {
            warn("Backup saved. Old versions were not removed because the operation was cancelled.");
        } catch (const std::exception& error) {
            warn(std::string("Backup saved, but old versions could not be fully removed: ") + error.what());
        }
    }

    // Counting files walks two whole versions, so it runs on a task of its own that the run's
    // cancellation reaches; a warning from it keeps every older version.
    std::optional<std::string> guardRotation() {
        std::stop_source guardStop;
        std::stop_callback forward(token_, [&guardStop] { guardStop.request_stop(); });
        const auto newVersion = publishedVersion_;
        const auto previous = previous_;
        auto guard = std::async(std::launch::async, [newVersion, previous, token = guardStop.get_token()] {
            return RotationGuard::compareWithPrevious(newVersion, previous, token);
        });
        try {
            return guard.get();
        } catch (const Cancelled&) {
            return "Backup saved. Old versions were not removed because the operation was cancelled.";
        } catch (const std::exception& error) {
            return std::string("Backup saved, but old versions could not be fully removed: ") + error.what();
        }
    }

    void runChecked(const std::vector<std::string>& arguments, const BackupOperation::LineHandler& onLine) {
        throwIfCancelled(token_);
        validate();
        bool diskFull = false;
        const auto watchForFullDisk = [&diskFull, &onLine](const std::string& line) {
            diskFull = diskFull || reportsFullDisk(line);
            if (onLine) onLine(line);
        };
        const int status = runRsync_(request_.rsyncPath, arguments, watchForFullDisk, token_);
        throwIfCancelled(token_);
        if (status != 0 && diskFull) throw BackupOperationError::diskFull(status);
        if (status != 0) throw BackupOperationError::transferFailed(status);
    }

    void applyFailureRule(const std::exception_ptr& error) {
        std::error_code missing;
        if (!fs::exists(fs::symlink_status(staging_, missing))) return;
        if (isCancellation(error) || request_.mismatchAction == "abort") {
            std::error_code removal;
            fs::remove_all(staging_, removal);
            if (removal)
                log("Could not remove incomplete backup at " + staging_.string() + ": " + removal.message());
            return;
        }
        try {
            writeFileAtomically(staging_ / "failure.txt",
                                "Incomplete backup. Not a restore source.\n" + describe(error) + "\n");
        } catch (const std::exception&) {
        }
        log("Incomplete backup retained for diagnosis at " + staging_.string() +
            ". It is not listed for restore and will be removed automatically on the next backup run for "
            "this "
            "card.");
    }

    void validate() { validateVolume_(request_, token_); }
    void log(const std::string& line) const {
        if (log_) log_(line);
    }
    void warn(const std::string& warning) {
        warnings_.push_back(warning);
        log(warning);
    }
    void report(const TransferEvent& event) const {
        if (onEvent_) onEvent_(event);
    }

    const BackupRequest& request_;
    const BackupOperation::LogHandler& log_;
    const BackupOperation::EventHandler& onEvent_;
    const BackupOperation::RsyncRunner& runRsync_;
    const BackupOperation::VolumeValidator& validateVolume_;
    std::stop_token token_;
    BackupRequest selection_;  // the request, its selection spelled as on the card
    const BackupOperation::Environment& environment_;
    BackupRepository repository_;
    const fs::path setRoot_;
    std::optional<BackupSetLock> setLock_;  // from before `latest` is read until the run returns

    RsyncVersion rsyncClass_ = RsyncVersion::unsupported({});
    bool canShowProgress_ = false;
    std::optional<fs::path> previous_, linkBase_, linkDest_;
    bool partial_ = false;
    fs::path staging_;
    std::optional<fs::path> fileList_;
    fs::path publishedVersion_;
    std::vector<std::string> warnings_;
};

}  // namespace

BackupOperation::Environment BackupOperation::Environment::system() {
    return Environment{[](const fs::path& path) { return tapekeep::availableBytes(path); },
                       [] { return Clock::now(); }};
}

BackupOperation::Outcome BackupOperation::run(const Request& request, const LogHandler& log,
                                              const EventHandler& onEvent, const RsyncRunner& runRsync,
                                              const VolumeValidator& validateVolume, std::stop_token token,
                                              const Environment& environment) {
    return BackupRun(request, log, onEvent, runRsync, validateVolume, std::move(token), environment).run();
}

BackupOperation::RsyncRunner BackupOperation::defaultRsyncRunner() {
    return [](const std::string& rsyncPath, const std::vector<std::string>& arguments,
              const LineHandler& onLine, std::stop_token token) {
        return tapekeep::runRsync(rsyncPath, arguments, onLine, std::move(token));
    };
}

std::optional<std::int64_t> BackupOperation::parseStatsNumber(const std::string& line, bool stripBytes) {
    const auto colon = line.find(':');
    if (colon == std::string::npos) return std::nullopt;
    std::string value = line.substr(colon + 1);
    if (stripBytes) {
        if (auto bytes = value.find(" bytes"); bytes != std::string::npos) value.erase(bytes);
    }
    std::erase(value, ',');
    value = trimmedSpacesAndTabs(value);
    std::size_t digitsFrom = (!value.empty() && (value[0] == '+' || value[0] == '-')) ? 1 : 0;
    if (value.size() == digitsFrom) return std::nullopt;
    for (std::size_t i = digitsFrom; i < value.size(); ++i)
        if (value[i] < '0' || value[i] > '9') return std::nullopt;
    errno = 0;
    char* end = nullptr;
    long long parsed = std::strtoll(value.c_str(), &end, 10);
    if (errno == ERANGE) return std::nullopt;
    return static_cast<std::int64_t>(parsed);
}

}  // namespace tapekeep
