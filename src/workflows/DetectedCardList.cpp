#include "workflows/DetectedCardList.h"

#include <algorithm>

#include "core/Cancelled.h"
#include "core/Uuid.h"
#include "workflows/QmlValues.h"

namespace tapekeep {

namespace {

bool listed(const std::vector<SDCard>& cards, const std::string& uuid) {
    return std::any_of(cards.begin(), cards.end(),
                       [&](const SDCard& card) { return card.diskUtilUUID == uuid; });
}

}  // namespace

DetectedCardList::DetectedCardList(std::function<std::unique_ptr<VolumeScanner>()> makeScanner,
                                   std::function<bool(const std::string& uuid)> keepsListed, QObject* parent)
    : QObject(parent), makeScanner_(std::move(makeScanner)), keepsListed_(std::move(keepsListed)) {}

void DetectedCardList::scan() {
    const std::string generation = makeUuid();
    scanGeneration_ = generation;
    if (!isScanning_) {
        isScanning_ = true;
        emit isScanningChanged();
    }
    if (scanError_) {
        scanError_.reset();
        emit scanErrorChanged();
    }
    background_.tasks().start(
        [this, generation, makeScanner = makeScanner_, poster = background_.poster()](std::stop_token token) {
            try {
                auto result = makeScanner()->scan(token);
                poster->post([this, generation, result] { applyScan(generation, result); });
            } catch (const Cancelled&) {
            } catch (const std::exception& error) {
                poster->post([this, generation, message = std::string(error.what())] {
                    applyScanError(generation, message);
                });
            }
        });
}

void DetectedCardList::applyScanError(const std::string& generation, const std::string& error) {
    if (generation != scanGeneration_) return;  // a newer scan owns the state
    scanError_ = error;
    emit scanErrorChanged();
    applyStatus(std::nullopt);
    finishScanning();
}

void DetectedCardList::applyScan(const std::string& generation, const VolumeScanner::ScanResult& result) {
    if (generation != scanGeneration_) return;
    std::vector<SDCard> cards = result.cards;
    for (const auto& old : detectedCards_)
        if (!listed(cards, old.diskUtilUUID) && keepsListed_(old.diskUtilUUID)) cards.push_back(old);
    for (const auto& old : detectedCards_)
        if (!listed(cards, old.diskUtilUUID)) emit cardLeft(old.diskUtilUUID);
    if (cards != detectedCards_) {
        detectedCards_ = cards;
        emit cardsChanged();
    }
    std::optional<VolumeScanner::ScanResult> status;
    if (cards.empty() && result.examinedCount > 0) status = result;
    applyStatus(status);
    emit cardsApplied();
    finishScanning();
}

void DetectedCardList::applyStatus(const std::optional<VolumeScanner::ScanResult>& status) {
    const bool changed = status.has_value() != scannerStatus_.has_value() ||
                         (status && (status->examinedCount != scannerStatus_->examinedCount ||
                                     status->excludedCount != scannerStatus_->excludedCount));
    scannerStatus_ = status;
    if (changed) emit scannerStatusChanged();
}

void DetectedCardList::finishScanning() {
    isScanning_ = false;
    emit isScanningChanged();
    emit scanFinished();
}

const SDCard* DetectedCardList::find(const std::string& uuid) const {
    for (const auto& card : detectedCards_)
        if (card.diskUtilUUID == uuid) return &card;
    return nullptr;
}

QVariantList DetectedCardList::cardsVariant() const {
    return QmlValues::listOf(detectedCards_, QmlValues::card);
}

QString DetectedCardList::scanErrorText() const {
    return scanError_ ? QmlValues::text(*scanError_) : QString();
}

QVariantMap DetectedCardList::scannerStatusVariant() const {
    if (!scannerStatus_) return {};
    return {{"examinedCount", scannerStatus_->examinedCount},
            {"excludedCount", scannerStatus_->excludedCount}};
}

}  // namespace tapekeep
