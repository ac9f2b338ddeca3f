#include "workflows/FreshnessTracker.h"

#include "core/Cancelled.h"
#include "core/Uuid.h"
#include "workflows/BackupVolumeCheck.h"
#include "workflows/QmlValues.h"

namespace tapekeep {
namespace fs = std::filesystem;

namespace {

// The differences counted per top-level folder; files at the card's root count under "".
DiffSummary summarize(const std::vector<FileDiff>& differences) {
    std::map<std::string, FolderDiff> folders;
    for (const auto& difference : differences) {
        const auto slash = difference.path.find('/');
        const std::string name = slash == std::string::npos ? "" : difference.path.substr(0, slash);
        auto& folder = folders[name];
        folder.name = name;
        folder.count(difference.kind);
    }
    DiffSummary summary;
    for (auto& [name, folder] : folders) summary.folders.push_back(folder);
    return summary;
}

}  // namespace

FreshnessTracker::FreshnessTracker(std::function<std::unique_ptr<VolumeScanner>()> makeScanner,
                                   Compare compare, QObject* parent)
    : QObject(parent), makeScanner_(std::move(makeScanner)), compare_(std::move(compare)) {}

bool FreshnessTracker::isCurrent(const std::string& uuid, const std::string& generation) const {
    auto current = diffGeneration_.find(uuid);
    return current != diffGeneration_.end() && current->second == generation;
}

void FreshnessTracker::refresh(const SDCard& card, const fs::path& baseFolder) {
    const std::string uuid = card.diskUtilUUID;
    if (freshnessTasks_.contains(uuid)) {
        freshnessRerun_.insert(uuid);
        return;
    }
    const std::string generation = makeUuid();
    diffGeneration_[uuid] = generation;
    auto work = [this, card, generation, baseFolder, poster = background_.poster(),
                 makeScanner = makeScanner_, compare = compare_](std::stop_token token) {
        const std::string& cardID = card.diskUtilUUID;
        try {
            const auto scanner = makeScanner();
            if (!isStillMounted(*scanner, card, token)) return;
            poster->post([this, cardID, generation] {
                if (isCurrent(cardID, generation)) cardFreshness_.assign(cardID, BackupFreshness::checking());
            });
            const auto comparison = compare(card, baseFolder, token);
            if (!isStillMounted(*scanner, card, token)) return;
            poster->post(
                [this, cardID, generation, comparison] { applyComparison(cardID, generation, comparison); });
        } catch (const Cancelled&) {
        } catch (const std::exception&) {
            // A card that cannot be read right now (being pulled, say) shows no freshness.
            poster->post([this, cardID, generation] {
                if (isCurrent(cardID, generation)) cardFreshness_.erase(cardID);
            });
        }
    };
    freshnessTasks_.start(uuid, work, [this, uuid](BackgroundTasks::Id id) {
        if (freshnessTasks_.forget(uuid, id) && freshnessRerun_.erase(uuid) > 0) emit comparisonWanted(uuid);
    });
}

void FreshnessTracker::applyComparison(const std::string& uuid, const std::string& generation,
                                       const CardComparison& comparison) {
    if (!isCurrent(uuid, generation)) return;
    cardQuickDiffs_[uuid] = comparison.differences;
    cardFreshness_.assign(uuid, comparison.freshness);
    if (cardDiffLoading_.contains(uuid)) {
        cardDiffSummary_.assign(uuid, summarize(comparison.differences));
        cardDiffLoading_.erase(uuid);
    }
}

void FreshnessTracker::markChecking(const std::string& uuid) {
    cardFreshness_.assign(uuid, BackupFreshness::checking());
}

void FreshnessTracker::requestDiffSummary(const std::string& uuid) {
    cardDiffLoading_.insert(uuid);
    cardDiffSummary_.erase(uuid);
}

void FreshnessTracker::clearDiffSummary(const std::string& uuid) {
    cardDiffLoading_.erase(uuid);
    cardDiffSummary_.erase(uuid);
}

void FreshnessTracker::stop(const std::string& uuid) {
    freshnessTasks_.stop(uuid);
    freshnessRerun_.erase(uuid);
    diffGeneration_.erase(uuid);  // a comparison still on its way is dropped
    cardQuickDiffs_.erase(uuid);
    cardFreshness_.erase(uuid);
    cardDiffLoading_.erase(uuid);
}

std::vector<FileDiff> FreshnessTracker::quickDiffs(const std::string& uuid) const {
    auto found = cardQuickDiffs_.find(uuid);
    return found == cardQuickDiffs_.end() ? std::vector<FileDiff>{} : found->second;
}

QVariantMap FreshnessTracker::freshnessVariant() const {
    return QmlValues::mapOf(cardFreshness_.all(), [](const BackupFreshness& freshness) {
        return QmlValues::text(freshness.label());
    });
}

QVariantMap FreshnessTracker::diffSummaryVariant() const {
    return QmlValues::mapOf(cardDiffSummary_.all(), [](const DiffSummary& summary) {
        return QmlValues::listOf(summary.folders, [](const FolderDiff& folder) {
            return QVariantMap{{"name", QmlValues::text(folder.name)},
                               {"added", folder.added},
                               {"modified", folder.modified},
                               {"deleted", folder.deleted}};
        });
    });
}

QStringList FreshnessTracker::diffLoadingVariant() const {
    return QmlValues::textList(cardDiffLoading_.all());
}

}  // namespace tapekeep
