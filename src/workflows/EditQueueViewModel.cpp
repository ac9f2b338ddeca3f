#include "workflows/EditQueueViewModel.h"

#include <QVariantMap>

#include <algorithm>
#include <utility>

#include "backup/BackupRepository.h"
#include "core/Cancelled.h"
#include "core/Error.h"
#include "edits/EditManifestStore.h"
#include "edits/EditQueueTexts.h"
#include "edits/StageSheetTexts.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

constexpr const char* noCard = "The card of this backup set is not connected.";

QString progressText(const ApplyProgress& progress) {
    switch (progress.phase) {
        case ApplyProgress::Phase::starting:
            return "STARTING";
        case ApplyProgress::Phase::copying:
            return "COPYING…";
        case ApplyProgress::Phase::verifying:
            return "VERIFYING…";
        case ApplyProgress::Phase::done:
            return "DONE";
        case ApplyProgress::Phase::failed:
            return "FAILED";
    }
    return {};
}

// Runs work, giving back the description of what it threw; cancellation is not caught.
std::optional<std::string> failureOf(const std::function<void()>& work) {
    try {
        work();
        return std::nullopt;
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        return describe(error);
    }
}

}  // namespace

EditQueueViewModel::EditQueueViewModel(Dependencies dependencies, QObject* parent)
    : QObject(parent), dependencies_(std::move(dependencies)), work_(this) {
    canApply_ = dependencies_.card &&
                !dependencies_.lock->isHeldAnywhere(VolumeUUID{dependencies_.card->diskUtilUUID});
    followLock();
}

EditQueueViewModel::~EditQueueViewModel() {
    if (lockObserver_) dependencies_.lock->removeObserver(*lockObserver_);
}

// ---- loading ----------------------------------------------------------------------------------

EditQueueViewModel::Loaded EditQueueViewModel::read(const std::stop_token& token) const {
    Loaded loaded;
    const auto& root = dependencies_.backupRootName;
    loaded.error = failureOf([&] { loaded.edits = dependencies_.store->pendingEdits(root); });
    if (loaded.error || !dependencies_.card) return loaded;
    loaded.cardHeld = dependencies_.lock->isHeldAnywhere(VolumeUUID{dependencies_.card->diskUtilUUID});
    loaded.scanError = failureOf([&] {
        loaded.liveCheck = EditLiveCheck::run(dependencies_.card->mountPath, loaded.edits,
                                              *dependencies_.store, root, token);
    });
    loaded.error = loaded.scanError;
    return loaded;
}

void EditQueueViewModel::load() {
    loadAfter({});
}

// Runs the change (if any) and then a load on a task; the change's failure stays in loadError over
// the load's own outcome, since it is what the user just asked for.
void EditQueueViewModel::loadAfter(std::function<void()> change) {
    const auto generation = ++loadGeneration_;
    beginLoad();
    work_.tasks().start(
        [this, change = std::move(change), generation, poster = work_.poster()](std::stop_token token) {
            try {
                const auto failure = change ? failureOf(change) : std::nullopt;
                auto loaded = read(token);
                if (failure) loaded.error = failure;
                poster->post([this, generation, loaded = std::move(loaded)]() mutable {
                    if (generation == loadGeneration_) show(std::move(loaded));
                });
            } catch (const Cancelled&) {
                // The sheet went away: nothing to show.
            }
        },
        [this](BackgroundTasks::Id) { endLoad(); });
}

// The notices leave out what a load under way may change, so they follow isLoading too.
void EditQueueViewModel::beginLoad() {
    ++loadsRunning_;
    emit isLoadingChanged();
    emit noticesChanged();
}

void EditQueueViewModel::endLoad() {
    --loadsRunning_;
    emit isLoadingChanged();
    emit noticesChanged();
    emit loadFinished();
}

void EditQueueViewModel::show(Loaded loaded) {
    edits_ = std::move(loaded.edits);
    liveCheck_ = std::move(loaded.liveCheck);
    scanError_ = std::move(loaded.scanError);
    // An edit comes up selected the first time it is shown; after that the user's choice stands.
    std::set<std::string> selected, shown;
    for (const auto& edit : edits_) {
        if (selection_.contains(edit.id) || !shownIDs_.contains(edit.id)) selected.insert(edit.id);
        shown.insert(edit.id);
    }
    selection_ = std::move(selected);
    shownIDs_ = std::move(shown);
    setLoadError(std::move(loaded.error));
    setCanApply(dependencies_.card && !loaded.cardHeld);
    emit rowsChanged();
    emit noticesChanged();
}

// ---- applying ---------------------------------------------------------------------------------

void EditQueueViewModel::apply() {
    if (isApplying_) return;
    if (auto refusal = dependencies_.featureAccess.refusal("edits")) return setLoadError(*refusal);
    if (!dependencies_.card) return setLoadError(std::string(noCard));
    isApplying_ = true;
    emit isApplyingChanged();
    perEditProgress_.clear();
    lastApplyResult_.reset();
    emit lastApplyResultChanged();
    emit rowsChanged();
    std::vector<std::string> chosen(selection_.begin(), selection_.end());
    applyTask_ = work_.tasks().start(
        [this, chosen = std::move(chosen)](std::stop_token token) { runApply(chosen, token); },
        [this](BackgroundTasks::Id) { applyTask_.reset(); });
}

void EditQueueViewModel::cancel() {
    if (applyTask_) work_.tasks().cancel(*applyTask_);
}

// On the apply's task. Posts finishApply exactly once, whatever happens.
void EditQueueViewModel::runApply(std::vector<std::string> chosen, const std::stop_token& token) {
    const auto& card = *dependencies_.card;
    const auto& root = dependencies_.backupRootName;
    std::optional<ApplyResult> result;
    Loaded loaded;
    try {
        loaded = read(token);
        // Edits made from another card's backups never go onto this one.
        if (!loaded.error)
            loaded.error = failureOf([&] {
                BackupRepository::checkSetBelongsTo(dependencies_.store->baseURL() / root, card.diskUtilUUID);
            });
        if (!loaded.error && loaded.cardHeld) loaded.error = EditQueueTexts::lockHeld;
        if (!loaded.error) {
            std::vector<EditEntry> run;
            for (const auto& edit : loaded.edits)
                if (std::ranges::find(chosen, edit.id) != chosen.end() && !loaded.liveCheck->isBlocked(edit))
                    run.push_back(edit);
            result = applyEdits(run, loaded.liveCheck->snapshot(), token);
            loaded = read({});  // also after a cancellation: the sheet shows what was recorded
        }
    } catch (const Cancelled&) {
        loaded = read({});
    } catch (const std::exception& error) {
        // Not expected: the applier records every failure on its edit. Said rather than lost.
        loaded = read({});
        loaded.error = describe(error);
    }
    work_.poster()->post([this, loaded = std::move(loaded), result = std::move(result)]() mutable {
        finishApply(std::move(loaded), std::move(result));
    });
}

EditQueueViewModel::ApplyResult EditQueueViewModel::applyEdits(const std::vector<EditEntry>& run,
                                                               LiveCheckSnapshot snapshot,
                                                               const std::stop_token& token) {
    const auto& card = *dependencies_.card;
    const auto& root = dependencies_.backupRootName;
    const auto store = dependencies_.store;
    EditApplier::Request request;
    request.edits = run;
    request.volumeUUID = card.diskUtilUUID;
    request.backupRootName = root;
    request.mountURL = card.mountPath;
    request.lockedCard = card;
    request.snapshot = std::move(snapshot);
    request.refresh = [store, root, run, mount = card.mountPath](std::stop_token scanToken) {
        return EditLiveCheck::run(mount, run, *store, root, scanToken).snapshot();
    };
    request.rsyncPath = dependencies_.rsyncPath;
    request.stagedFileResolver = [store, root](const EditEntry& edit) {
        return store->stagedURL(edit, root);
    };

    std::map<std::string, ApplyProgress> outcome;
    const auto publish = [&](const std::string& id, const ApplyProgress& progress) {
        outcome[id] = progress;
        work_.poster()->post([this, id, progress] {
            perEditProgress_[id] = progress;
            emit rowsChanged();
        });
    };
    try {
        EditApplier(*store, dependencies_.applier).applyEdits(request, publish, token);
    } catch (const Cancelled&) {
        // Recorded on the edit it met; the result below counts it with the rest.
    }
    ApplyResult result;
    for (const auto& edit : run) {
        const auto found = outcome.find(edit.id);
        if (found != outcome.end() && found->second.phase == ApplyProgress::Phase::done) {
            ++result.succeeded;
            continue;
        }
        ++result.failed;
        const bool failed = found != outcome.end() && found->second.phase == ApplyProgress::Phase::failed;
        result.failureMessages.push_back(failed ? found->second.message : EditQueueTexts::noResult);
    }
    return result;
}

void EditQueueViewModel::finishApply(Loaded loaded, std::optional<ApplyResult> result) {
    show(std::move(loaded));
    isApplying_ = false;
    lastApplyResult_ = std::move(result);
    emit isApplyingChanged();
    emit lastApplyResultChanged();
    emit noticesChanged();
    emit applyFinished();
}

// ---- discarding and renaming ------------------------------------------------------------------

void EditQueueViewModel::discard(const std::vector<std::string>& ids) {
    loadAfter([store = dependencies_.store, root = dependencies_.backupRootName, ids] {
        for (const auto& id : ids) store->discardEdit(id, root);
    });
}

void EditQueueViewModel::discardSelected() {
    discard({selection_.begin(), selection_.end()});
}

void EditQueueViewModel::discardAll() {
    std::vector<std::string> ids;
    for (const auto& edit : edits_) ids.push_back(edit.id);
    discard(ids);
}

void EditQueueViewModel::rename(const QString& id, const QString& newTarget) {
    const std::string target = newTarget.toStdString();
    if (liveCheck_ && liveCheck_->holdsPath(target))
        return setLoadError(std::string(EditQueueTexts::renameTargetOnCard));
    loadAfter([store = dependencies_.store, root = dependencies_.backupRootName, id = id.toStdString(),
               target] { store->renameEditTarget(id, target, root); });
}

// ---- selection and lock -----------------------------------------------------------------------

void EditQueueViewModel::setSelected(const QString& id, bool selected) {
    const std::string key = id.toStdString();
    if (selected == selection_.contains(key)) return;
    if (selected)
        selection_.insert(key);
    else
        selection_.erase(key);
    emit rowsChanged();
    emit noticesChanged();
}

void EditQueueViewModel::selectAll(bool selected) {
    std::set<std::string> ids;
    if (selected)
        for (const auto& edit : edits_) ids.insert(edit.id);
    select(ids);
}

void EditQueueViewModel::select(const std::set<std::string>& ids) {
    selection_.clear();
    for (const auto& edit : edits_)
        if (ids.contains(edit.id)) selection_.insert(edit.id);
    emit rowsChanged();
    emit noticesChanged();
}

std::optional<std::string> EditQueueViewModel::blockReason(const EditEntry& edit) const {
    return liveCheck_ ? liveCheck_->blockReason(edit) : std::nullopt;
}

void EditQueueViewModel::setLoadError(std::optional<std::string> error) {
    if (error == loadError_) return;
    loadError_ = std::move(error);
    emit loadErrorChanged();
    emit noticesChanged();
}

void EditQueueViewModel::setCanApply(bool canApply) {
    if (canApply == canApply_) return;
    canApply_ = canApply;
    emit canApplyChanged();
    emit noticesChanged();
}

// The lock's observers run on whichever thread changed it; the answer is worked out here.
void EditQueueViewModel::followLock() {
    if (!dependencies_.card) return;
    lockObserver_ = dependencies_.lock->observeActiveVolumeUUIDs(
        [this, poster = work_.poster()](const std::set<std::string>&) {
            poster->post([this] {
                const VolumeUUID uuid{dependencies_.card->diskUtilUUID};
                setCanApply(!dependencies_.lock->isHeldAnywhere(uuid));
            });
        });
}

// ---- what the sheet shows ---------------------------------------------------------------------

QVariantList EditQueueViewModel::rows() const {
    QVariantList rows;
    for (const auto& edit : edits_) {
        const bool isNewFile = edit.mode == EditMode::saveAsNew;
        std::vector<std::string> states;
        if (scanError_)
            states.push_back(EditQueueTexts::scanErrorPrefix + *scanError_);
        else if (liveCheck_)
            states = liveCheck_->rowStates(edit);
        const auto progress = perEditProgress_.find(edit.id);
        rows.push_back(QVariantMap{
            {"id", QmlValues::text(edit.id)},
            {"mode", isNewFile ? "saveAsNew" : "overwrite"},
            {"modeLabel",
             QString::fromUtf8(isNewFile ? StageSheetTexts::saveAsNewMode : StageSheetTexts::overwriteMode)},
            {"source", QmlValues::text(edit.sourceRelativePath)},
            {"target", QmlValues::text(edit.targetRelativePath)},
            {"createdAt", QmlValues::epochMilliseconds(edit.createdAt)},
            {"applyError", QmlValues::optionalText(edit.applyError)},
            {"states", QmlValues::textList(states)},
            {"blocked", isBlocked(edit)},
            {"blockReason", QmlValues::optionalText(blockReason(edit))},
            {"selected", selection_.contains(edit.id)},
            {"progressText", progress == perEditProgress_.end() ? QString() : progressText(progress->second)},
            {"progressMessage",
             progress == perEditProgress_.end() ? QString() : QmlValues::text(progress->second.message)},
            {"canRename", isNewFile},
        });
    }
    return rows;
}

QVariant EditQueueViewModel::loadErrorVariant() const {
    return QmlValues::optionalText(loadError_);
}

QVariant EditQueueViewModel::lastApplyResultVariant() const {
    if (!lastApplyResult_) return {};
    return QVariantMap{{"succeeded", lastApplyResult_->succeeded},
                       {"failed", lastApplyResult_->failed},
                       {"failureMessages", QmlValues::textList(lastApplyResult_->failureMessages)}};
}

QStringList EditQueueViewModel::notices() const {
    QStringList notices;
    if (dependencies_.card && !canApply_ && !isLoading()) notices.push_back(EditQueueTexts::lockHeldBanner);
    if (scanError_) notices.push_back(QmlValues::text(EditQueueTexts::scanErrorPrefix + *scanError_));
    bool blocked = false;
    bool overwriteWithExtraSongs = false;
    for (const auto& edit : edits_) {
        if (!selection_.contains(edit.id)) continue;
        blocked = blocked || isBlocked(edit);
        if (edit.mode == EditMode::overwrite && liveCheck_) {
            const auto delta = liveCheck_->deltas.find(edit.id);
            overwriteWithExtraSongs = overwriteWithExtraSongs || (delta != liveCheck_->deltas.end() &&
                                                                  !delta->second.extraSongsOnCard.empty());
        }
    }
    if (blocked) notices.push_back(EditQueueTexts::blocked);
    if (overwriteWithExtraSongs) notices.push_back(EditQueueTexts::overwriteHasExtraSongs);
    if (lastApplyResult_ && lastApplyResult_->failed > 0) notices.push_back(EditQueueTexts::applyFailed);
    if (edits_.empty() && !loadError_ && !isLoading()) notices.push_back(EditQueueTexts::noPendingEdits);
    return notices;
}

QString EditQueueViewModel::applyConfirmation() const {
    const bool replaces = std::ranges::any_of(edits_, [this](const EditEntry& edit) {
        return edit.mode == EditMode::overwrite && selection_.contains(edit.id);
    });
    return replaces ? EditQueueTexts::applyReplaces : EditQueueTexts::applyWrites;
}

}  // namespace tapekeep
