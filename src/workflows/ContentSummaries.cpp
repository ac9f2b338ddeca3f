#include "workflows/ContentSummaries.h"

#include "content/M8ContentScanner.h"
#include "core/Cancelled.h"
#include "workflows/BackupVolumeCheck.h"
#include "workflows/QmlValues.h"

namespace tapekeep {

namespace {

QVariantList countsVariant(const ContentCounts& counts) {
    return QmlValues::listOf(counts, [](const ContentCount& count) {
        return QVariantMap{{"label", QmlValues::text(count.label)}, {"count", count.count}};
    });
}

}  // namespace

ContentSummaries::ContentSummaries(std::function<std::unique_ptr<VolumeScanner>()> makeScanner,
                                   SettingsStore* store, QObject* parent)
    : QObject(parent), makeScanner_(std::move(makeScanner)), store_(store) {}

void ContentSummaries::scan(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    if (contentScanTasks_.contains(uuid)) return;
    auto work = [this, card, poster = background_.poster(),
                 makeScanner = makeScanner_](std::stop_token token) {
        const std::string& cardID = card.diskUtilUUID;
        try {
            const auto volumes = makeScanner();
            if (!isStillMounted(*volumes, card, token)) return;
            poster->post([this, cardID] { showCachedSummary(cardID); });
            const auto reportProgress = [this, poster, cardID](ContentCounts soFar) {
                poster->post([this, cardID, soFar] { cardContentScanProgress_.assign(cardID, soFar); });
            };
            M8ContentScanner scanner;
            auto counts = scanner.scanContent(card.mountPath, reportProgress, token).first;
            if (token.stop_requested() || !isStillMounted(*volumes, card, token)) return;
            poster->post([this, cardID, counts] { applyCounts(cardID, counts); });
        } catch (const Cancelled&) {
        }
    };
    contentScanTasks_.start(uuid, work, [this, uuid](BackgroundTasks::Id id) {
        if (contentScanTasks_.forget(uuid, id)) emit labelChanged();
        cardContentScanProgress_.erase(uuid);
    });
    emit labelChanged();
}

// The remembered counts show while the card is counted anew.
void ContentSummaries::showCachedSummary(const std::string& uuid) {
    if (store_ == nullptr || cardContentSummary_.contains(uuid)) return;
    if (auto cached = M8ContentScanner::cachedSummary(uuid, *store_))
        cardContentSummary_.assign(uuid, *cached);
}

void ContentSummaries::applyCounts(const std::string& uuid, const ContentCounts& counts) {
    cardContentSummary_.assign(uuid, counts);
    emit labelChanged();
    contentScanFinishedAt_[uuid] = Clock::now();
    if (store_ != nullptr) M8ContentScanner::storeSummary(counts, uuid, *store_);
}

void ContentSummaries::stop(const std::string& uuid) {
    contentScanFinishedAt_.erase(uuid);
    if (contentScanTasks_.stop(uuid)) emit labelChanged();
}

void ContentSummaries::forgetSummary(const std::string& uuid) {
    cardContentSummary_.erase(uuid);
}

std::optional<std::string> ContentSummaries::label(const std::string& uuid) const {
    if (contentScanTasks_.contains(uuid)) return "Scanning";
    const auto* summary = cardContentSummary_.find(uuid);
    if (summary != nullptr && summary->empty()) return "No M8 files";
    return std::nullopt;
}

QVariantMap ContentSummaries::summaryVariant() const {
    return QmlValues::mapOf(cardContentSummary_.all(), countsVariant);
}

QVariantMap ContentSummaries::scanProgressVariant() const {
    return QmlValues::mapOf(cardContentScanProgress_.all(), countsVariant);
}

}  // namespace tapekeep
