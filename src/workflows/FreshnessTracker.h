#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "cards/VolumeScanner.h"
#include "core/FileDiff.h"
#include "core/SDCard.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"
#include "workflows/BackupFreshness.h"
#include "workflows/CardComparison.h"
#include "workflows/CardSet.h"
#include "workflows/CardTasks.h"
#include "workflows/DiffSummary.h"
#include "workflows/PerCard.h"

namespace tapekeep {

// Whether each card differs from its latest backup, and, when asked, how, per top-level folder.
// At most one comparison runs per card; one asked for while another runs is made once that one has
// ended (comparisonWanted tells when), however often it was asked for. A comparison publishes
// nothing unless the card is still mounted under its UUID at its mount path before and after
// reading it: a card that was ejected or pulled is not an empty card. "CHECKING" shows only once the
// card is known to be there, and what a comparison stopped by stop() would still deliver is dropped.
//
// Lives on the controller's thread and is used only there.
class FreshnessTracker : public QObject {
    Q_OBJECT

public:
    using Compare = std::function<CardComparison(const SDCard& card, const std::filesystem::path& baseFolder,
                                                 std::stop_token token)>;

    // compare runs on a background thread.
    explicit FreshnessTracker(std::function<std::unique_ptr<VolumeScanner>()> makeScanner,
                              Compare compare = CardComparison::compare, QObject* parent = nullptr);

    // Compares the card with the latest version of its set under baseFolder.
    void refresh(const SDCard& card, const std::filesystem::path& baseFolder);
    // The card changed: it shows "CHECKING" until its next comparison ends.
    void markChecking(const std::string& uuid);
    // The next comparison of the card also makes its summary; the old one goes.
    void requestDiffSummary(const std::string& uuid);
    void clearDiffSummary(const std::string& uuid);
    // Cancels the card's comparison and forgets its freshness and differences.
    void stop(const std::string& uuid);

    [[nodiscard]] std::optional<BackupFreshness> freshness(const std::string& uuid) const {
        return cardFreshness_.value(uuid);
    }
    [[nodiscard]] std::vector<FileDiff> quickDiffs(const std::string& uuid) const;
    [[nodiscard]] std::optional<DiffSummary> diffSummary(const std::string& uuid) const {
        return cardDiffSummary_.value(uuid);
    }

    [[nodiscard]] bool isDiffLoading(const std::string& uuid) const {
        return cardDiffLoading_.contains(uuid);
    }

    [[nodiscard]] QVariantMap freshnessVariant() const;
    [[nodiscard]] QVariantMap diffSummaryVariant() const;
    [[nodiscard]] QStringList diffLoadingVariant() const;

signals:
    void freshnessChanged();
    void diffSummaryChanged();
    void diffLoadingChanged();
    // The card changed while it was being compared, and that comparison has ended.
    void comparisonWanted(const std::string& uuid);

private:
    void applyComparison(const std::string& uuid, const std::string& generation,
                         const CardComparison& comparison);
    [[nodiscard]] bool isCurrent(const std::string& uuid, const std::string& generation) const;

    const std::function<std::unique_ptr<VolumeScanner>()> makeScanner_;
    const Compare compare_;
    PerCard<BackupFreshness> cardFreshness_{[this] { emit freshnessChanged(); }};
    PerCard<DiffSummary> cardDiffSummary_{[this] { emit diffSummaryChanged(); }};
    CardSet cardDiffLoading_{[this] { emit diffLoadingChanged(); }};
    std::map<std::string, std::vector<FileDiff>> cardQuickDiffs_;
    std::map<std::string, std::string> diffGeneration_;  // the comparison whose results count
    std::set<std::string> freshnessRerun_;               // changed again while its comparison ran
    BackgroundWork background_{this};                    // after what its tasks use
    CardTasks freshnessTasks_{background_.tasks()};
};

}  // namespace tapekeep
