#include "workflows/AutoBackupCountdown.h"

#include <algorithm>
#include <chrono>

#include "app/AppSettings.h"
#include "core/Cancelled.h"
#include "workflows/CardStateTable.h"

namespace tapekeep {

namespace {

bool mayArm(CardState::Kind kind) {
    return kind == CardState::Kind::idle || kind == CardState::Kind::success ||
           kind == CardState::Kind::failed;
}

}  // namespace

AutoBackupCountdown::AutoBackupCountdown(AppSettings& settings, CardStateTable& states,
                                         std::optional<bool> autoBackupOverride,
                                         std::function<bool(const std::string& uuid)> isRunning,
                                         QObject* parent)
    : QObject(parent),
      settings_(settings),
      states_(states),
      autoBackupOverride_(autoBackupOverride),
      isRunning_(std::move(isRunning)) {}

void AutoBackupCountdown::mountsChanged(const std::vector<SDCard>& present) {
    const bool autoBackup = autoBackupOverride_.value_or(settings_.autoBackupOnConnect());
    if (!autoBackup || armAfterScan_ || !hasScanned_) return;
    armAfterScan_.emplace();
    for (const auto& card : present) armAfterScan_->insert(card.diskUtilUUID);
}

void AutoBackupCountdown::scanSucceeded(const std::vector<SDCard>& cards) {
    hasScanned_ = true;
    if (auto before = std::exchange(armAfterScan_, std::nullopt)) {
        for (const auto& card : cards)
            if (!before->contains(card.diskUtilUUID)) arm(card);
    }
}

void AutoBackupCountdown::scanFailed() {
    armAfterScan_.reset();
}

void AutoBackupCountdown::arm(const SDCard& card) {
    const std::string& uuid = card.diskUtilUUID;
    if (isRunning_(uuid) || !mayArm(states_.state(uuid).kind)) return;
    if (auto refusal = featureAccess_.refusal("autoBackup"))
        return states_.set(uuid, CardState::failed(*refusal));
    autoBackupTasks_.requestStop(uuid);
    const auto delay = std::chrono::seconds(std::max(0, settings_.autoBackupDelaySeconds()));
    const auto start = Clock::now();
    states_.set(uuid, CardState::autoBackupCountdown(start, start + delay));
    autoBackupTasks_.start(uuid, [this, uuid, delay, poster = background_.poster()](std::stop_token token) {
        if (!sleepFor(delay, token)) return;
        poster->post([this, uuid] { countdownEnded(uuid); });
    });
}

void AutoBackupCountdown::countdownEnded(const std::string& uuid) {
    if (autoBackupTasks_.forget(uuid)) emit elapsed(uuid);  // else cancelled after its sleep ended
}

bool AutoBackupCountdown::cancel(const std::string& uuid) {
    return autoBackupTasks_.stop(uuid);
}

void AutoBackupCountdown::cancelAll() {
    autoBackupTasks_.requestStopAll();
}

}  // namespace tapekeep
