#include "workflows/RestoreViewModel.h"

#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cctype>

#include "app/AppSettings.h"
#include "backup/BackupRepository.h"
#include "backup/ProgressLineParser.h"
#include "backup/SelectiveBackup.h"
#include "cards/OperationLock.h"
#include "cards/OperationLockError.h"
#include "content/M8SongParser.h"
#include "content/SampleReferences.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "core/Formatting.h"
#include "core/Log.h"
#include "core/Uuid.h"
#include "platform/VolumeEjector.h"
#include "workflows/BackupRequestFactory.h"
#include "workflows/BackupVolumeCheck.h"
#include "workflows/QmlValues.h"
#include "workflows/RestoreSelection.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

const Log& log() {
    static const Log instance("RestoreViewModel");
    return instance;
}

using QmlValues::optionalText;
using QmlValues::text;

template <typename Item>
const Item* itemAt(const std::vector<Item>& items, int index) {
    return index >= 0 && static_cast<std::size_t>(index) < items.size()
               ? &items[static_cast<std::size_t>(index)]
               : nullptr;
}

QVariant sizeVariant(const std::optional<std::int64_t>& size) {
    return size ? QVariant(static_cast<qint64>(*size)) : QVariant();
}

// "" until the size is known.
QString sizeText(const std::optional<std::int64_t>& size) {
    return size ? text(formatByteCount(*size)) : QString();
}

// A set that cannot be compared now will be backed up, or fail to be, at the start of the run.
bool safetyBackupExpected(const SDCard& card, const fs::path& baseFolder, std::stop_token token) {
    try {
        return UndoableRestore::needsSafetyBackup(card, baseFolder, token);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception&) {
        return true;
    }
}

bool isHidden(const fs::path& path) {
    return path.filename().string().starts_with('.');
}

bool isSong(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".m8s";
}

// The visible entries of a folder of a version, by name; links are left out, as rsync would copy
// them as links and never what they point at.
std::vector<fs::directory_entry> visibleEntries(const fs::path& folder, std::stop_token token) {
    std::vector<fs::directory_entry> entries;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        throwIfCancelled(token);
        std::error_code typeError;
        if (!isHidden(entry.path()) && !entry.is_symlink(typeError)) entries.push_back(entry);
    }
    std::sort(entries.begin(), entries.end(), [](auto& a, auto& b) { return a.path() < b.path(); });
    return entries;
}

// The folder at a path relative to the version, reached through real folders only: a path that
// leaves the version or passes a link names nothing in it.
std::optional<fs::path> folderWithin(const fs::path& version, const std::string& relativePath) {
    try {
        SelectiveBackup::validateRelativePath(relativePath);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    fs::path folder = version;
    for (const auto& component : fs::path(relativePath)) {
        folder /= component;
        if (!component.empty() && !BackupRepository::isRealDirectory(folder)) return std::nullopt;
    }
    return folder;
}

std::vector<RestoreSubpathSelection> childrenOf(const fs::path& version, const std::string& folderPath,
                                                bool selected, std::stop_token token) {
    std::vector<RestoreSubpathSelection> children;
    const auto folder = folderWithin(version, folderPath);
    if (!folder) return children;
    for (const auto& entry : visibleEntries(*folder, token)) {
        std::error_code error;
        const bool isDirectory = entry.is_directory(error);
        const auto size = isDirectory ? std::uintmax_t(0) : entry.file_size(error);
        const std::string name = entry.path().filename().string();
        children.push_back(RestoreSubpathSelection{
            makeUuid(), name, folderPath + "/" + name, isDirectory,
            isDirectory || error ? std::nullopt : std::optional<std::int64_t>(size), selected});
    }
    return children;
}

std::vector<SongItem> songsOf(const fs::path& version, const fs::path& songsFolder, std::stop_token token) {
    std::vector<SongItem> songs;
    for (const auto& file : BrowseFileService::m8FileURLs(songsFolder, token)) {
        if (!isSong(file)) continue;
        std::error_code error;
        const auto size = fs::file_size(file, error);
        songs.push_back(SongItem{makeUuid(), file.stem().string(), file.lexically_relative(version).string(),
                                 error ? std::nullopt : std::optional<std::int64_t>(size), false,
                                 M8SongParser::parseSamplePaths(file)});
    }
    std::sort(songs.begin(), songs.end(), [](auto& a, auto& b) { return a.relativePath < b.relativePath; });
    return songs;
}

// The code pairs of the two choices, in the words that QML and the CLI use.
const char* modeText(RestoreMode mode) {
    return mode == RestoreMode::fullBackup ? "fullBackup" : "folders";
}
const char* modeText(SongsRestoreMode mode) {
    return mode == SongsRestoreMode::fullFolder ? "fullFolder" : "individual";
}

}  // namespace

RestoreViewModel::RestoreViewModel(AppSettings& settings, Dependencies dependencies, QObject* parent)
    : QObject(parent),
      settings_(settings),
      dependencies_(std::move(dependencies)),
      poster_(std::make_shared<MainThreadPoster>(this)),
      tasks_(poster_),
      versionExport_(dependencies_.exportFolder, [this](const std::string& line) { appendLog(line); }) {
    if (!dependencies_.makeScanner)  // the user's excluded volumes are never offered as targets
        dependencies_.makeScanner = [store = &settings_.store()] {
            return std::make_unique<VolumeScanner>(VolumeScanner::defaultVolumeRoots(), store);
        };
    if (!dependencies_.ejectVolume) dependencies_.ejectVolume = VolumeEjector::ejectVolume;
    connect(&versionExport_, &VersionExport::isExportingChanged, this, &RestoreViewModel::isExportingChanged);
    connect(&versionExport_, &VersionExport::progressChanged, this, &RestoreViewModel::exportProgressChanged);
    connect(&versionExport_, &VersionExport::percentChanged, this, &RestoreViewModel::exportPercentChanged);
    connect(&versionExport_, &VersionExport::finished, this, &RestoreViewModel::exportFinished);
}

// A run that the end of the controller stops still gives its card back.
RestoreViewModel::~RestoreViewModel() {
    poster_->detach();
    tasks_.stopAll();
    if (heldLease_) OperationLock::shared().release(*heldLease_);
}

fs::path RestoreViewModel::baseFolder() const {
    if (dependencies_.baseFolderOverride) return *dependencies_.baseFolderOverride;
    return fs::path(settings_.backupBaseDirPath().toStdString());
}

std::string RestoreViewModel::rsyncPath() const {
    return dependencies_.rsyncPathOverride.value_or(settings_.rsyncPath().toStdString());
}

void RestoreViewModel::cancelTask(std::optional<BackgroundTasks::Id>& task) {
    if (task) tasks_.cancel(*task);
    task.reset();
}

void RestoreViewModel::setStep(RestoreStep step) {
    assign(step_, std::move(step), &RestoreViewModel::stepChanged);
}

// ---- targets, sets and versions -------------------------------------------------------------

void RestoreViewModel::loadTargets() {
    hasInitialized_ = true;
    cancelTask(targetsTask_);
    assign(isLoadingTargets_, true, &RestoreViewModel::isLoadingTargetsChanged);
    targetsTask_ = tasks_.start(
        [this, makeScanner = dependencies_.makeScanner, poster = poster_](std::stop_token token) {
            std::vector<SDCard> cards;
            try {
                cards = makeScanner()->scan(token).cards;
            } catch (const Cancelled&) {
                return;  // a later load replaces this one
            } catch (const std::exception& error) {
                log().error(std::string("Target scan failed: ") + error.what());
            }
            poster->post([this, cards] { applyTargets(cards); });
        });
    loadSets();
}

void RestoreViewModel::applyTargets(const std::vector<SDCard>& targets) {
    assign(availableTargets_, targets, &RestoreViewModel::availableTargetsChanged);
    assign(isLoadingTargets_, false, &RestoreViewModel::isLoadingTargetsChanged);
}

void RestoreViewModel::loadSets() {
    const std::string generation = makeUuid();
    repositoryGeneration_ = generation;
    repositoryRoot_ = baseFolder();
    assign(isLoadingSets_, true, &RestoreViewModel::isLoadingSetsChanged);
    tasks_.start([this, generation, root = *repositoryRoot_, poster = poster_](std::stop_token) {
        std::vector<BackupSet> sets;
        try {
            sets = BackupRepository(root).listSets();
        } catch (const std::exception& error) {
            log().error(std::string("Listing backup sets failed: ") + error.what());
        }
        poster->post(
            [this, generation, sets = std::move(sets)]() mutable { applySets(generation, std::move(sets)); });
    });
}

void RestoreViewModel::applySets(const std::string& generation, std::vector<BackupSet> sets) {
    if (generation != repositoryGeneration_) return;
    replace(availableSets_, std::move(sets), &RestoreViewModel::availableSetsChanged);
    assign(isLoadingSets_, false, &RestoreViewModel::isLoadingSetsChanged);
}

void RestoreViewModel::selectTarget(const SDCard& card) {
    assign(selectedTarget_, std::optional(card), &RestoreViewModel::selectedTargetChanged);
    setStep(RestoreStep::at(RestoreStep::Kind::selectSet));
}

// The set's versions are listed afresh, with their notes and the sizes cache: the list the sets
// came with may be older than what the store holds now.
void RestoreViewModel::selectSet(const BackupSet& set) {
    const std::string generation = makeUuid();
    repositoryGeneration_ = generation;
    cancelTask(versionSizeTask_);
    replace(selectedSet_, std::optional(set), &RestoreViewModel::selectedSetChanged);
    replace(selectedVersion_, std::optional<BackupVersion>(), &RestoreViewModel::selectedVersionChanged);
    assign(isLoadingVersionSizes_, true, &RestoreViewModel::isLoadingVersionSizesChanged);
    setStep(RestoreStep::at(RestoreStep::Kind::selectVersion));
    versionSizeTask_ =
        tasks_.start([this, generation, set, root = baseFolder(), poster = poster_](std::stop_token) {
            RepositoryFacts facts;
            facts.set = set;
            try {
                facts.set->versions = BackupRepository(root).listVersions(set.rootURL);
            } catch (const std::exception& error) {  // an unreadable set shows as one without versions
                log().error("Listing " + set.rootURL.string() + " failed: " + error.what());
                facts.set->versions.clear();
            }
            for (const auto& version : facts.set->versions)
                if (auto note = BackupRepository::readNote(version.url); !note.empty())
                    facts.notes[version.folderName] = note;
            facts.sizes = BackupRepository::loadSizes(set.rootURL);
            poster->post([this, generation, facts = std::move(facts)]() mutable {
                applyRepositoryFacts(generation, std::move(facts));
            });
        });
}

void RestoreViewModel::selectTarget(int index) {
    if (const SDCard* card = itemAt(availableTargets_, index)) selectTarget(*card);
}

void RestoreViewModel::selectSet(int index) {
    if (const BackupSet* set = itemAt(availableSets_, index)) selectSet(*set);
}

void RestoreViewModel::selectVersion(int index) {
    if (const BackupVersion* version = versionAt(index)) selectVersion(*version);
}

const BackupVersion* RestoreViewModel::versionAt(int index) const {
    return selectedSet_ ? itemAt(selectedSet_->versions, index) : nullptr;
}

void RestoreViewModel::applyRepositoryFacts(const std::string& generation, RepositoryFacts facts) {
    if (generation != repositoryGeneration_) return;
    replace(selectedSet_, std::move(facts.set), &RestoreViewModel::selectedSetChanged);
    assign(versionNotes_, std::move(facts.notes), &RestoreViewModel::versionNotesChanged);
    assign(versionSizes_, std::move(facts.sizes), &RestoreViewModel::versionSizesChanged);
    assign(isLoadingVersionSizes_, false, &RestoreViewModel::isLoadingVersionSizesChanged);
}

// ---- the version's content ------------------------------------------------------------------

void RestoreViewModel::stopVersionWork() {
    cancelTask(songLoadTask_);
    cancelTask(folderSizeTask_);
    cancelTask(diffTask_);
    versionGeneration_ = makeUuid();
}

void RestoreViewModel::selectVersion(const BackupVersion& version) {
    stopVersionWork();
    const std::string generation = versionGeneration_;
    replace(selectedVersion_, std::optional(version), &RestoreViewModel::selectedVersionChanged);
    changeChoice(
        [this] {
            choice_.folders.clear();
            choice_.songs.clear();
            choice_.folderChildren.clear();
        },
        &RestoreViewModel::availableFoldersChanged);
    emit availableSongsChanged();
    emit folderChildrenChanged();
    assign(folderSizesLoaded_, false, &RestoreViewModel::folderSizesLoadedChanged);
    replace(diffResult_, std::optional<std::vector<FileDiff>>(), &RestoreViewModel::diffResultChanged);
    assign(isLoadingSongs_, true, &RestoreViewModel::isLoadingSongsChanged);
    setStep(RestoreStep::at(RestoreStep::Kind::selectFolders));
    songLoadTask_ =
        tasks_.start([this, generation, root = version.url, poster = poster_](std::stop_token token) {
            VersionContents contents;
            try {
                for (const auto& entry : visibleEntries(root, token)) {
                    std::error_code error;
                    if (!entry.is_directory(error)) continue;
                    const std::string name = entry.path().filename().string();
                    contents.folders.push_back(
                        FolderSelection{makeUuid(), name, std::nullopt, true, name, false});
                    if (BrowseFileService::indexKey(name) == BrowseFileService::indexKey("Songs"))
                        contents.songs = songsOf(root, entry.path(), token);
                }
            } catch (const Cancelled&) {
                return;
            } catch (const std::exception& error) {
                log().error("Listing " + root.string() + " failed: " + error.what());
            }
            poster->post([this, generation, contents = std::move(contents)]() mutable {
                applyVersionContents(generation, std::move(contents));
            });
        });
}

void RestoreViewModel::applyVersionContents(const std::string& generation, VersionContents contents) {
    if (generation != versionGeneration_) return;
    choice_.folders = std::move(contents.folders);
    choice_.songs = std::move(contents.songs);
    emit availableFoldersChanged();
    emit availableSongsChanged();
    assign(isLoadingSongs_, false, &RestoreViewModel::isLoadingSongsChanged);
    loadFolderSizes(generation);
}

void RestoreViewModel::loadFolderSizes(const std::string& generation) {
    std::vector<std::string> names;
    for (const auto& folder : choice_.folders) names.push_back(folder.name);
    folderSizeTask_ = tasks_.start(
        [this, generation, names, root = selectedVersion_->url, poster = poster_](std::stop_token token) {
            std::map<std::string, std::int64_t> sizes;
            try {
                for (const auto& name : names)
                    sizes[name] = BackupRepository::versionSize(root / name, token);
            } catch (const Cancelled&) {
                return;
            } catch (const std::exception& error) {
                log().info(std::string("Folder sizes not read: ") + error.what());
            }
            poster->post([this, generation, sizes] { applyFolderSizes(generation, sizes); });
        });
}

void RestoreViewModel::applyFolderSizes(const std::string& generation,
                                        const std::map<std::string, std::int64_t>& sizes) {
    if (generation != versionGeneration_) return;
    for (auto& folder : choice_.folders)
        if (auto size = sizes.find(folder.name); size != sizes.end()) folder.size = size->second;
    emit availableFoldersChanged();
    assign(folderSizesLoaded_, true, &RestoreViewModel::folderSizesLoadedChanged);
}

// One level of a folder's entries, each chosen as its folder is.
void RestoreViewModel::loadFolderChildren(const std::string& folderPath) {
    if (!selectedVersion_ || !loadingFolderChildren_.insert(folderPath).second) return;
    emit loadingFolderChildrenChanged();
    tasks_.start([this, generation = versionGeneration_, folderPath, selected = isChosen(folderPath),
                  root = selectedVersion_->url, poster = poster_](std::stop_token token) {
        std::vector<RestoreSubpathSelection> children;
        try {
            children = childrenOf(root, folderPath, selected, token);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {  // shown as a folder without entries
            log().error("Listing " + folderPath + " failed: " + error.what());
        }
        poster->post([this, generation, folderPath, children = std::move(children)]() mutable {
            if (loadingFolderChildren_.erase(folderPath) > 0) emit loadingFolderChildrenChanged();
            if (generation != versionGeneration_) return;
            choice_.folderChildren[folderPath] = std::move(children);
            emit folderChildrenChanged();
        });
    });
}

// A folder of the version as the choice has it: a top folder by its own mark, a folder below by
// its entry in its parent's listing; one not listed yet counts as chosen.
bool RestoreViewModel::isChosen(const std::string& folderPath) const {
    for (const auto& folder : choice_.folders)
        if (folder.relativePath.value_or(folder.name) == folderPath) return folder.selected;
    const auto slash = folderPath.rfind('/');
    if (slash == std::string::npos) return true;
    const auto siblings = choice_.folderChildren.find(folderPath.substr(0, slash));
    if (siblings == choice_.folderChildren.end()) return true;
    for (const auto& entry : siblings->second)
        if (entry.relativePath == folderPath) return entry.selected;
    return true;
}

// ---- the choice -----------------------------------------------------------------------------

// Any change of the choice makes an earlier preview stale.
void RestoreViewModel::changeChoice(const std::function<void()>& change,
                                    void (RestoreViewModel::*changed)()) {
    change();
    emit(this->*changed)();
    cancelTask(diffTask_);
    diffGeneration_ = makeUuid();
    replace(diffResult_, std::optional<std::vector<FileDiff>>(), &RestoreViewModel::diffResultChanged);
    assign(isLoadingDiff_, false, &RestoreViewModel::isLoadingDiffChanged);
}

void RestoreViewModel::setRestoreMode(RestoreMode mode) {
    if (choice_.mode != mode)
        changeChoice([&] { choice_.mode = mode; }, &RestoreViewModel::restoreModeChanged);
}

void RestoreViewModel::setSongsRestoreMode(SongsRestoreMode mode) {
    if (choice_.songsMode != mode)
        changeChoice([&] { choice_.songsMode = mode; }, &RestoreViewModel::songsRestoreModeChanged);
}

void RestoreViewModel::setFolderSelected(const std::string& name, bool selected) {
    changeChoice(
        [&] {
            for (auto& folder : choice_.folders)
                if (folder.name == name && !folder.locked) folder.selected = selected;
            auto children = choice_.folderChildren.find(name);
            if (children != choice_.folderChildren.end())
                for (auto& child : children->second) child.selected = selected;
        },
        &RestoreViewModel::availableFoldersChanged);
}

void RestoreViewModel::setSongSelected(const std::string& relativePath, bool selected) {
    changeChoice(
        [&] {
            for (auto& song : choice_.songs)
                if (song.relativePath == relativePath) song.selected = selected;
        },
        &RestoreViewModel::availableSongsChanged);
}

void RestoreViewModel::setChildSelected(const std::string& folderPath, const std::string& relativePath,
                                        bool selected) {
    changeChoice(
        [&] {
            for (auto& child : choice_.folderChildren[folderPath])
                if (child.relativePath == relativePath) child.selected = selected;
        },
        &RestoreViewModel::folderChildrenChanged);
}

void RestoreViewModel::chooseFolder(const QString& name, bool selected) {
    setFolderSelected(name.toStdString(), selected);
}

void RestoreViewModel::chooseSong(const QString& relativePath, bool selected) {
    setSongSelected(relativePath.toStdString(), selected);
}

void RestoreViewModel::chooseChild(const QString& folderPath, const QString& relativePath, bool selected) {
    setChildSelected(folderPath.toStdString(), relativePath.toStdString(), selected);
}

void RestoreViewModel::openFolder(const QString& folderPath) {
    loadFolderChildren(folderPath.toStdString());
}

void RestoreViewModel::confirmSelection() {
    if (selectedTarget_ && selectedVersion_) setStep(RestoreStep::at(RestoreStep::Kind::confirm));
}

RestoreOperation::Request RestoreViewModel::requestForSelection() const {
    return RestoreOperation::Request{*selectedTarget_, selectedVersion_->url, choice_, rsyncPath()};
}

RestoreOperation::Validator RestoreViewModel::validator() const {
    return [makeScanner = dependencies_.makeScanner](const std::string& uuid, std::stop_token token) {
        return makeScanner()->validate(uuid, token);
    };
}

// ---- preview --------------------------------------------------------------------------------

void RestoreViewModel::loadPreview() {
    if (!selectedTarget_ || !selectedVersion_) return;
    const std::string generation = makeUuid();
    diffGeneration_ = generation;
    cancelTask(diffTask_);
    setStep(RestoreStep::at(RestoreStep::Kind::previewDiff));
    replace(diffResult_, std::optional<std::vector<FileDiff>>(), &RestoreViewModel::diffResultChanged);
    assign(previewError_, std::optional<std::string>(), &RestoreViewModel::previewErrorChanged);
    assign(isLoadingDiff_, true, &RestoreViewModel::isLoadingDiffChanged);
    RestoreOperation::Dependencies dependencies{dependencies_.runRsync, validator(), dependencies_.logStore};
    diffTask_ = tasks_.start([this, generation, request = requestForSelection(), dependencies,
                              backupFirst = settings_.backupBeforeRestore(), base = baseFolder(),
                              poster = poster_](std::stop_token token) {
        PreviewOutcome outcome;
        try {
            outcome.rows = RestoreOperation::preview(request, dependencies, token);
            outcome.safetyBackup = backupFirst && safetyBackupExpected(request.card, base, token);
        } catch (const Cancelled&) {
            return;  // a later preview, or the end of the wizard, replaced this one
        } catch (const std::exception& error) {
            outcome.error = describe(error);
        }
        poster->post([this, generation, outcome = std::move(outcome)]() mutable {
            applyPreview(generation, std::move(outcome));
        });
    });
}

void RestoreViewModel::applyPreview(const std::string& generation, PreviewOutcome outcome) {
    if (generation != diffGeneration_) return;
    diffTask_.reset();
    assign(safetyBackupPlanned_, outcome.safetyBackup, &RestoreViewModel::safetyBackupPlannedChanged);
    if (!outcome.rows)
        assign(previewError_, std::optional(outcome.error), &RestoreViewModel::previewErrorChanged);
    replace(diffResult_, std::move(outcome.rows), &RestoreViewModel::diffResultChanged);
    assign(isLoadingDiff_, false, &RestoreViewModel::isLoadingDiffChanged);
    emit previewFinished();
}

// ---- the run --------------------------------------------------------------------------------

void RestoreViewModel::startRestore() {
    if (auto refusal = featureAccess_.refusal("restore")) return setStep(RestoreStep::failed(*refusal));
    if (!selectedTarget_ || !selectedVersion_ || restoreTask_) return;
    if (RestoreSelection::isEmpty(RestoreSelection::planFor(choice_)))
        return setStep(RestoreStep::failed("Nothing selected to restore."));
    if (takeLease()) startRestoreTask(undoableRequest());
}

// The card's restore lease, held until completeRestore; on a refusal the step says why.
bool RestoreViewModel::takeLease() {
    const std::string uuid = selectedTarget_->diskUtilUUID;
    std::optional<RestoreStep> refusal;
    try {
        if (uuid.empty()) throw RestoreError::operationInProgress();  // no card can be held without one
        heldLease_ = OperationLock::shared().acquire(VolumeUUID{uuid}, OperationKind::restore);
    } catch (const OperationLockError&) {
        refusal = RestoreStep::failed(RestoreError::operationInProgress());
    } catch (const RestoreError& error) {
        refusal = RestoreStep::failed(error);
    } catch (const std::exception& error) {
        refusal = RestoreStep::failed(describe(error));
    }
    if (refusal) {
        setStep(*refusal);
        return false;
    }
    setStep(RestoreStep::at(RestoreStep::Kind::running));
    pendingLogLines_.clear();
    assign(logLines_, std::vector<std::string>{}, &RestoreViewModel::logLinesChanged);
    resetProgress();
    assign(safetyVersion_, std::optional<fs::path>(), &RestoreViewModel::safetyVersionChanged);
    return true;
}

// The safety backup is built as the backup controller builds a whole-card run from the settings.
UndoableRestore::Request RestoreViewModel::undoableRequest() const {
    UndoableRestore::Request request{requestForSelection(), std::nullopt, baseFolder()};
    if (!settings_.backupBeforeRestore()) return request;
    request.safetyBackup = makeBackupRequest(*selectedTarget_, settings_, BackupChoice{}, baseFolder());
    request.safetyBackup->rsyncPath = rsyncPath();
    return request;
}

UndoableRestore::Dependencies RestoreViewModel::runDependencies() const {
    return UndoableRestore::Dependencies{
        RestoreOperation::Dependencies{dependencies_.runRsync, validator(), dependencies_.logStore},
        makeVolumeValidator(dependencies_.makeScanner), dependencies_.environment};
}

void RestoreViewModel::startRestoreTask(const UndoableRestore::Request& request) {
    startRunTask([this, request, dependencies = runDependencies()](std::stop_token token) {
        RunResult result;
        const auto outcome = UndoableRestore::run(
            request, [this](const std::string& line) { receiveLine(line); }, dependencies, token);
        if (outcome.failure) result.step = RestoreStep::failed(*outcome.failure);
        result.safetyVersion = outcome.safetyVersion;
        return result;
    });
}

void RestoreViewModel::undoLastRestore() {
    if (auto refusal = featureAccess_.refusal("restore")) return setStep(RestoreStep::failed(*refusal));
    if (!selectedTarget_ || restoreTask_ || !takeLease()) return;
    startRunTask([this, card = *selectedTarget_, base = baseFolder(), rsync = rsyncPath(),
                  dependencies = runDependencies()](std::stop_token token) {
        RunResult result;
        result.safetyVersion = UndoableRestore::undo(
            card, base, rsync, [this](const std::string& line) { receiveLine(line); }, dependencies.restore,
            token);
        return result;
    });
}

// Runs a restore or an undo on a background task; whatever it throws ends the step as a failure.
void RestoreViewModel::startRunTask(std::function<RunResult(std::stop_token)> run) {
    auto work = [this, run = std::move(run), poster = poster_](std::stop_token token) {
        RunResult result;
        try {
            result = run(token);
        } catch (const Cancelled&) {
            result.step = RestoreStep::failed(RestoreError::cancelled());
        } catch (const RestoreError& error) {
            result.step = RestoreStep::failed(error);
        } catch (const std::exception& error) {
            result.step = RestoreStep::failed(describe(error));
        }
        poster->post([this, result] { completeRestore(result); });
    };
    restoreTask_ = tasks_.start(work, [this](BackgroundTasks::Id id) {
        if (restoreTask_ == id) restoreTask_.reset();
        emit restoreFinished();
    });
}

// The last lines stand before the result, and the card is free again before anyone hears of it.
void RestoreViewModel::completeRestore(const RunResult& result) {
    drainInbox();
    flushOutput();
    if (result.step.isCancelled()) appendLog("Restore cancelled by user.");
    if (heldLease_) OperationLock::shared().release(*heldLease_);
    heldLease_.reset();
    assign(safetyVersion_, result.safetyVersion, &RestoreViewModel::safetyVersionChanged);
    setStep(result.step);
}

void RestoreViewModel::cancelRestore() {
    if (restoreTask_) tasks_.cancel(*restoreTask_);
}

void RestoreViewModel::goBack() {
    using Kind = RestoreStep::Kind;
    switch (step_.kind) {
        case Kind::selectSet:
            return setStep(RestoreStep::at(Kind::selectTarget));
        case Kind::selectVersion:
            return setStep(RestoreStep::at(Kind::selectSet));
        case Kind::selectFolders:
            return setStep(RestoreStep::at(Kind::selectVersion));
        case Kind::confirm:
            return setStep(RestoreStep::at(Kind::selectFolders));
        case Kind::previewDiff:
            cancelTask(diffTask_);
            diffGeneration_ = makeUuid();
            assign(isLoadingDiff_, false, &RestoreViewModel::isLoadingDiffChanged);
            return setStep(RestoreStep::at(Kind::confirm));
        case Kind::selectTarget:
        case Kind::running:
        case Kind::done:
            return;
    }
}

void RestoreViewModel::startOver() {
    if (restoreTask_) return;
    setStep(RestoreStep::at(RestoreStep::Kind::selectTarget));
    loadTargets();
}

// ---- output ---------------------------------------------------------------------------------

// On the run's thread: lines wait in the inbox, and the first of a burst asks for one drain.
void RestoreViewModel::receiveLine(const std::string& line) {
    bool first = false;
    {
        std::lock_guard lock(inboxMutex_);
        first = inbox_.empty();
        inbox_.push_back(line);
    }
    if (first) poster_->post([this] { drainInbox(); });
}

void RestoreViewModel::drainInbox() {
    std::vector<std::string> lines;
    {
        std::lock_guard lock(inboxMutex_);
        lines.swap(inbox_);
    }
    for (auto& line : lines) {
        if (const auto progress = parseProgressLine(line))
            showProgress(*progress);
        else if (!isProgressNoise(line))
            pendingLogLines_.push_back(std::move(line));
    }
    if (!lines.empty()) scheduleFlush();
}

// At most one flush waits, a flush delay after its first unflushed line: however fast rsync prints,
// the log changes at most four times a second.
void RestoreViewModel::scheduleFlush() {
    if (outputFlushScheduled_) return;
    outputFlushScheduled_ = true;
    QTimer::singleShot(dependencies_.flushDelay, this, [this] {
        if (outputFlushScheduled_) flushOutput();
    });
}

void RestoreViewModel::flushOutput() {
    outputFlushScheduled_ = false;
    if (pendingLogLines_.empty()) return;
    logLines_.insert(logLines_.end(), std::make_move_iterator(pendingLogLines_.begin()),
                     std::make_move_iterator(pendingLogLines_.end()));
    pendingLogLines_.clear();
    emit logLinesChanged();
}

// rsync's "--progress" gives each file's own percentage; the "to-chk=" counts of the whole run are
// what a bar can follow, and it never runs backwards.
void RestoreViewModel::showProgress(const TransferProgressLine& line) {
    if (line.checkKind != TransferProgressLine::CheckKind::to || !line.remaining || !line.total ||
        *line.total <= 0)
        return;
    const double checked =
        static_cast<double>(*line.total - *line.remaining) / static_cast<double>(*line.total);
    const double shown = std::max(std::clamp(checked, 0.0, 1.0), progress_.value_or(0.0));
    if (progress_ == shown && filesRemaining_ == line.remaining) return;
    progress_ = shown;
    filesRemaining_ = line.remaining;
    emit progressChanged();
}

void RestoreViewModel::resetProgress() {
    if (!progress_ && !filesRemaining_) return;
    progress_.reset();
    filesRemaining_.reset();
    emit progressChanged();
}

void RestoreViewModel::appendLog(const std::string& line) {
    logLines_.push_back(line);
    emit logLinesChanged();
}

// ---- export ---------------------------------------------------------------------------------

void RestoreViewModel::exportVersion(const BackupVersion& version, const fs::path& destination) {
    if (auto refusal = featureAccess_.refusal("export")) return appendLog("Export unavailable: " + *refusal);
    versionExport_.start(version.url, destination);
}

void RestoreViewModel::exportSelectedVersion(const QString& destination) {
    exportVersionOrSayWhy(selectedVersion_ ? &*selectedVersion_ : nullptr, destination);
}

void RestoreViewModel::exportVersion(int versionIndex, const QString& destination) {
    exportVersionOrSayWhy(versionAt(versionIndex), destination);
}

// From QML the destination is a path or a file URL.
void RestoreViewModel::exportVersionOrSayWhy(const BackupVersion* version, const QString& destination) {
    if (!version) return appendLog("Export unavailable: No backup version is selected.");
    const QUrl url(destination);
    exportVersion(*version, (url.isLocalFile() ? url.toLocalFile() : destination).toStdString());
}

void RestoreViewModel::cancelExport() {
    versionExport_.cancel();
}

// ---- notes and eject ------------------------------------------------------------------------

void RestoreViewModel::saveNote(const BackupVersion& version, const std::string& note) {
    const auto failure = BackupRepository::saveNote(version.url, note);
    assign(noteSaveError_, failure, &RestoreViewModel::noteSaveErrorChanged);
    const std::string saved = failure ? "(unsaved — disk error)" : BackupRepository::readNote(version.url);
    if (saved.empty()) {
        if (versionNotes_.erase(version.folderName) > 0) emit versionNotesChanged();
    } else if (versionNotes_[version.folderName] != saved) {
        versionNotes_[version.folderName] = saved;
        emit versionNotesChanged();
    }
}

void RestoreViewModel::saveNote(int versionIndex, const QString& text) {
    if (const BackupVersion* version = versionAt(versionIndex)) saveNote(*version, text.toStdString());
}

// One try and no lease: the user is on the last page, and nothing of ours is using the card.
void RestoreViewModel::ejectTarget() {
    if (!selectedTarget_) return emit ejectFinished("No target selected.");
    if (OperationLock::shared().activeVolumeUUIDs().contains(selectedTarget_->diskUtilUUID))
        return emit ejectFinished("Cannot eject while another operation is running.");
    tasks_.start([this, mountPath = selectedTarget_->mountPath, eject = dependencies_.ejectVolume,
                  poster = poster_](std::stop_token token) {
        std::string failure;
        try {
            eject(mountPath, token);
        } catch (const Cancelled&) {
            failure = "Eject was cancelled.";
        } catch (const std::exception& error) {
            failure = "Failed to eject: " + describe(error);
        }
        poster->post([this, failure] { emit ejectFinished(text(failure)); });
    });
}

// ---- property getters -----------------------------------------------------------------------

QVariantMap RestoreViewModel::stepVariant() const {
    return {{"kind", RestoreStep::rawValue(step_.kind)}, {"error", optionalText(step_.error)}};
}

QVariantList RestoreViewModel::availableTargetsVariant() const {
    return QmlValues::listOf(availableTargets_, QmlValues::card);
}

QVariantList RestoreViewModel::availableSetsVariant() const {
    return QmlValues::listOf(availableSets_, QmlValues::backupSet);
}

QVariant RestoreViewModel::selectedTargetVariant() const {
    return selectedTarget_ ? QVariant(QmlValues::card(*selectedTarget_)) : QVariant();
}

QVariant RestoreViewModel::selectedSetVariant() const {
    return selectedSet_ ? QVariant(QmlValues::backupSet(*selectedSet_)) : QVariant();
}

QVariant RestoreViewModel::selectedVersionVariant() const {
    return selectedVersion_ ? QVariant(QmlValues::version(*selectedVersion_)) : QVariant();
}

QStringList RestoreViewModel::logLinesVariant() const {
    return QmlValues::textList(logLines_);
}

QVariantMap RestoreViewModel::versionNotesVariant() const {
    QVariantMap notes;
    for (const auto& [version, note] : versionNotes_) notes.insert(text(version), text(note));
    return notes;
}

QVariant RestoreViewModel::noteSaveErrorVariant() const {
    return optionalText(noteSaveError_);
}

QVariantList RestoreViewModel::availableFoldersVariant() const {
    return QmlValues::listOf(choice_.folders, [](const FolderSelection& folder) {
        return QVariantMap{{"id", text(folder.id)},
                           {"name", text(folder.name)},
                           {"size", sizeVariant(folder.size)},
                           {"sizeText", sizeText(folder.size)},
                           {"selected", folder.selected},
                           {"relativePath", optionalText(folder.relativePath)},
                           {"locked", folder.locked}};
    });
}

QVariantList RestoreViewModel::availableSongsVariant() const {
    return QmlValues::listOf(choice_.songs, [](const SongItem& song) {
        return QVariantMap{{"id", text(song.id)},
                           {"name", text(song.name)},
                           {"relativePath", text(song.relativePath)},
                           {"size", sizeVariant(song.size)},
                           {"sizeText", sizeText(song.size)},
                           {"selected", song.selected},
                           {"samplePaths", QmlValues::textList(song.samplePaths)}};
    });
}

QString RestoreViewModel::songsRestoreModeText() const {
    return modeText(choice_.songsMode);
}

void RestoreViewModel::setSongsRestoreModeText(const QString& mode) {
    setSongsRestoreMode(mode == "individual" ? SongsRestoreMode::individual : SongsRestoreMode::fullFolder);
}

QString RestoreViewModel::restoreModeText() const {
    return modeText(choice_.mode);
}

void RestoreViewModel::setRestoreModeText(const QString& mode) {
    setRestoreMode(mode == "folders" ? RestoreMode::folders : RestoreMode::fullBackup);
}

QVariantMap RestoreViewModel::folderChildrenVariant() const {
    QVariantMap map;
    for (const auto& [folder, children] : choice_.folderChildren) {
        map.insert(text(folder), QmlValues::listOf(children, [](const RestoreSubpathSelection& child) {
                       return QVariantMap{{"id", text(child.id)},
                                          {"name", text(child.name)},
                                          {"relativePath", text(child.relativePath)},
                                          {"isDirectory", child.isDirectory},
                                          {"size", sizeVariant(child.size)},
                                          {"sizeText", sizeText(child.size)},
                                          {"selected", child.selected}};
                   }));
    }
    return map;
}

QStringList RestoreViewModel::loadingFolderChildrenVariant() const {
    return QmlValues::textList(loadingFolderChildren_);
}

QVariant RestoreViewModel::diffResultVariant() const {
    return QmlValues::diffRows(diffResult_);
}

QVariant RestoreViewModel::previewErrorVariant() const {
    return optionalText(previewError_);
}

QVariant RestoreViewModel::safetyVersionVariant() const {
    return safetyVersion_ ? QVariant(text(safetyVersion_->string())) : QVariant();
}

QVariantMap RestoreViewModel::versionSizeTextsVariant() const {
    return QmlValues::mapOf(versionSizes_, [](std::int64_t size) { return QVariant(sizeText(size)); });
}

QVariant RestoreViewModel::progressVariant() const {
    return progress_ ? QVariant(*progress_) : QVariant();
}

QVariant RestoreViewModel::filesRemainingVariant() const {
    return QmlValues::optionalNumber(filesRemaining_);
}

QVariantMap RestoreViewModel::versionSizesVariant() const {
    QVariantMap sizes;
    for (const auto& [version, size] : versionSizes_) sizes.insert(text(version), static_cast<qint64>(size));
    return sizes;
}

}  // namespace tapekeep
