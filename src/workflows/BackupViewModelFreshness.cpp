// What BackupViewModel does without being asked: the countdown to an automatic backup of a newly
// connected card, whether each card differs from its latest backup, and what each card holds.
//
// Choices made here, as a musician would want them:
// - Only an idle, finished or failed card is armed; a card being confirmed or backed up is not.
// - A countdown ends in a run only if the card is still detected when it ends: an unmount in the
//   meantime makes it leave the list, which cancels the countdown.
// - A card that changes while connected shows "CHECKING" at once, and its comparison and content
//   scan run when it has been quiet for freshnessQuietTime (2 seconds) after the watcher's last
//   report: the change count appears a few seconds after the writes stop.
// - No comparison and no content scan runs twice at once for one card; a change during one asks for
//   exactly one more afterwards. Neither runs while the card is being backed up: the run's end
//   starts a fresh comparison.
// - A comparison or content scan publishes and caches nothing unless the card is still mounted
//   under its UUID, at its mount path, before and after reading it: a card that was ejected or
//   pulled is not an empty card, and the folder left where it was mounted is not the card.
//   "CHECKING" shows only once the card is known to be there.

#include <QTimer>

#include "app/AppSettings.h"
#include "cards/CardChangeWatcher.h"
#include "cards/OperationLock.h"
#include "content/M8ContentScanner.h"
#include "core/Cancelled.h"
#include "core/Uuid.h"
#include "workflows/BackupViewModel.h"
#include "workflows/BackupVolumeCheck.h"
#include "workflows/CardComparison.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

DiffSummary summarize(const std::vector<FileDiff>& differences) {
    std::map<std::string, FolderDiff> folders;
    for (const auto& difference : differences) {
        const auto slash = difference.path.find('/');
        const std::string name = slash == std::string::npos ? "" : difference.path.substr(0, slash);
        auto& folder = folders[name];
        folder.name = name;
        switch (difference.kind) {
            case FileDiff::Kind::added:
                ++folder.added;
                break;
            case FileDiff::Kind::modified:
                ++folder.modified;
                break;
            case FileDiff::Kind::deleted:
                ++folder.deleted;
                break;
        }
    }
    DiffSummary summary;
    for (auto& [name, folder] : folders) summary.folders.push_back(folder);
    return summary;
}

bool mayArm(CardState::Kind kind) {
    return kind == CardState::Kind::idle || kind == CardState::Kind::success ||
           kind == CardState::Kind::failed;
}

}  // namespace

// ---- auto-backup ----------------------------------------------------------------------------

void BackupViewModel::armCountdown(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (isRunning(uuid) || !mayArm(cardState(uuid).kind)) return;
    if (auto refusal = featureAccess_.refusal("autoBackup"))
        return setState(uuid, CardState::failed(*refusal));
    if (auto countdown = autoBackupTasks_.find(uuid); countdown != autoBackupTasks_.end())
        tasks_.cancel(countdown->second);
    const auto delay = std::chrono::seconds(std::max(0, settings_.autoBackupDelaySeconds()));
    const auto start = Clock::now();
    setState(uuid, CardState::autoBackupCountdown(start, start + delay));
    autoBackupTasks_[uuid] = tasks_.start([this, uuid, delay, poster = poster_](std::stop_token token) {
        if (!sleepFor(delay, token)) return;
        poster->post([this, uuid] { countdownEnded(uuid); });
    });
}

void BackupViewModel::countdownEnded(const std::string& uuid) {
    if (!autoBackupTasks_.erase(uuid)) return;  // cancelled after its sleep ended
    const SDCard* card = detectedCard(uuid);
    std::error_code error;
    if (card != nullptr && fs::exists(card->mountPath, error) &&
        cardState(uuid).kind == CardState::Kind::autoBackupCountdown) {
        // An automatic backup takes the whole card to the usual store, whatever an earlier options
        // sheet chose.
        stopOptionsWork(uuid);
        erase(cardFolders_, uuid, &BackupViewModel::cardFoldersChanged);
        erase(cardSongs_, uuid, &BackupViewModel::cardSongsChanged);
        erase(destinationOverride_, uuid, &BackupViewModel::destinationOverrideChanged);
        startBackup(*card);
        return;
    }
    if (cardState(uuid).kind == CardState::Kind::autoBackupCountdown) setState(uuid, CardState::idle());
}

void BackupViewModel::cancelCountdown(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (auto countdown = autoBackupTasks_.find(uuid); countdown != autoBackupTasks_.end()) {
        tasks_.cancel(countdown->second);
        autoBackupTasks_.erase(countdown);
    }
    setState(uuid, CardState::idle());
}

// ---- freshness ------------------------------------------------------------------------------

void BackupViewModel::refreshFreshness(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    if (!dependencies_.followCardContent || isRunning(uuid)) return;
    if (freshnessTasks_.contains(uuid)) {
        freshnessRerun_.insert(uuid);
        return;
    }
    const std::string generation = makeUuid();
    diffGeneration_[uuid] = generation;
    freshnessTasks_[uuid] = tasks_.start(
        [this, card, generation, base = baseFolder(), poster = poster_,
         makeScanner = dependencies_.makeScanner](std::stop_token token) {
            try {
                const auto scanner = makeScanner();
                if (!isStillMounted(*scanner, card, token)) return;
                poster->post([this, uuid = card.diskUtilUUID, generation] {
                    if (diffGeneration_[uuid] == generation)
                        assign(cardFreshness_, uuid, BackupFreshness::checking(),
                               &BackupViewModel::cardFreshnessChanged);
                });
                const auto comparison = CardComparison::compare(card, base, token);
                if (!isStillMounted(*scanner, card, token)) return;
                poster->post([this, uuid = card.diskUtilUUID, generation, comparison] {
                    applyComparison(uuid, generation, comparison.freshness, comparison.differences);
                });
            } catch (const Cancelled&) {
            } catch (const std::exception&) {
                // A card that cannot be read right now (being pulled, say) shows no freshness.
                poster->post([this, uuid = card.diskUtilUUID, generation] {
                    if (diffGeneration_[uuid] == generation)
                        erase(cardFreshness_, uuid, &BackupViewModel::cardFreshnessChanged);
                });
            }
        },
        [this, uuid](BackgroundTasks::Id id) {
            if (!forgetTask(freshnessTasks_, uuid, id) || !freshnessRerun_.erase(uuid)) return;
            if (const SDCard* present = detectedCard(uuid)) refreshFreshness(*present);
        });
}

void BackupViewModel::applyComparison(const std::string& uuid, const std::string& generation,
                                      const BackupFreshness& freshness,
                                      const std::vector<FileDiff>& differences) {
    if (diffGeneration_[uuid] != generation) return;
    cardQuickDiffs_[uuid] = differences;
    assign(cardFreshness_, uuid, freshness, &BackupViewModel::cardFreshnessChanged);
    if (cardDiffLoading_.erase(uuid) > 0) {
        assign(cardDiffSummary_, uuid, summarize(differences), &BackupViewModel::cardDiffSummaryChanged);
        emit cardDiffLoadingChanged();
    }
}

void BackupViewModel::startDiffSummary(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (auto refusal = featureAccess_.refusal("diffSummary"))
        return setState(uuid, CardState::failed(*refusal));
    if (isRunning(uuid) || OperationLock::shared().isActive(VolumeUUID{uuid})) return;
    if (cardDiffLoading_.insert(uuid).second) emit cardDiffLoadingChanged();
    erase(cardDiffSummary_, uuid, &BackupViewModel::cardDiffSummaryChanged);
    refreshFreshness(card);
}

void BackupViewModel::stopCachedWork(const std::string& uuid) {
    if (auto task = freshnessTasks_.find(uuid); task != freshnessTasks_.end()) {
        tasks_.cancel(task->second);
        freshnessTasks_.erase(task);
    }
    freshnessRerun_.erase(uuid);
    diffGeneration_.erase(uuid);  // a comparison still on its way is dropped
    freshnessTimers_.erase(uuid);
    cardQuickDiffs_.erase(uuid);
    erase(cardFreshness_, uuid, &BackupViewModel::cardFreshnessChanged);
    if (cardDiffLoading_.erase(uuid) > 0) emit cardDiffLoadingChanged();
}

// ---- content --------------------------------------------------------------------------------

void BackupViewModel::scanContent(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    if (!dependencies_.followCardContent || contentScanTasks_.contains(uuid)) return;
    auto work = [this, card, poster = poster_,
                 makeScanner = dependencies_.makeScanner](std::stop_token token) {
        const std::string& cardID = card.diskUtilUUID;
        try {
            const auto volumes = makeScanner();
            if (!isStillMounted(*volumes, card, token)) return;
            // The remembered counts show while the card is counted anew.
            poster->post([this, cardID] {
                if (dependencies_.store == nullptr || cardContentSummary_.contains(cardID)) return;
                if (auto cached = M8ContentScanner::cachedSummary(cardID, *dependencies_.store))
                    assign(cardContentSummary_, cardID, *cached, &BackupViewModel::cardContentSummaryChanged);
            });
            M8ContentScanner scanner;
            auto counts = scanner
                              .scanContent(
                                  card.mountPath,
                                  [this, poster, cardID](ContentCounts soFar) {
                                      poster->post([this, cardID, soFar] {
                                          assign(cardContentScanProgress_, cardID, soFar,
                                                 &BackupViewModel::cardContentScanProgressChanged);
                                      });
                                  },
                                  token)
                              .first;
            if (token.stop_requested() || !isStillMounted(*volumes, card, token)) return;
            poster->post([this, cardID, counts] {
                assign(cardContentSummary_, cardID, counts, &BackupViewModel::cardContentSummaryChanged);
                emit cardContentLabelChanged();
                contentScanFinishedAt_[cardID] = Clock::now();
                if (dependencies_.store != nullptr)
                    M8ContentScanner::storeSummary(counts, cardID, *dependencies_.store);
            });
        } catch (const Cancelled&) {
        }
    };
    setContentScanning(uuid, tasks_.start(work, [this, uuid](BackgroundTasks::Id id) {
        if (forgetTask(contentScanTasks_, uuid, id)) emit cardContentLabelChanged();
        erase(cardContentScanProgress_, uuid, &BackupViewModel::cardContentScanProgressChanged);
    }));
}

// Records the card's running content scan, or that none runs, and tells the content label.
void BackupViewModel::setContentScanning(const std::string& uuid, std::optional<BackgroundTasks::Id> task) {
    if (task)
        contentScanTasks_[uuid] = *task;
    else if (contentScanTasks_.erase(uuid) == 0)
        return;
    emit cardContentLabelChanged();
}

// ---- what each report re-runs ---------------------------------------------------------------

void BackupViewModel::onCardChanged(const std::string& uuid) {
    if (detectedCard(uuid) == nullptr || isRunning(uuid)) return;
    assign(cardFreshness_, uuid, BackupFreshness::checking(), &BackupViewModel::cardFreshnessChanged);
    auto& timer = freshnessTimers_[uuid];
    if (!timer) {
        timer = std::make_unique<QTimer>();
        timer->setSingleShot(true);
        QObject::connect(timer.get(), &QTimer::timeout, this, [this, uuid] {
            if (const SDCard* card = detectedCard(uuid)) {
                refreshFreshness(*card);
                scanContent(*card);
            }
        });
    }
    timer->start(dependencies_.freshnessQuietTime);
}

void BackupViewModel::onBackupsChanged(const std::string& base) {
    if (fs::path(base).lexically_normal() != baseFolder().lexically_normal()) return;
    for (const auto& card : detectedCards_) {
        loadRepositoryFacts(card, baseFolder());
        refreshFreshness(card);
    }
}

void BackupViewModel::onCardContentMayHaveChanged(const std::string& uuid) {
    if (const SDCard* card = detectedCard(uuid)) {
        refreshFreshness(*card);
        scanContent(*card);
    }
}

}  // namespace tapekeep
