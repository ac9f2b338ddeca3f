#include "workflows/CardChangeFollower.h"

#include <QTimer>

#include <algorithm>

namespace tapekeep {
CardChangeFollower::CardChangeFollower(std::chrono::milliseconds quietTime,
                                       CardChangeWatcher::Timing watcherTiming, QObject* parent)
    : QObject(parent), quietTime_(quietTime), watcherTiming_(watcherTiming) {}

CardChangeFollower::~CardChangeFollower() = default;

void CardChangeFollower::follow(const std::vector<SDCard>& cards) {
    const auto followed = [&](const std::string& uuid) {
        return std::any_of(cards.begin(), cards.end(),
                           [&](const SDCard& card) { return card.diskUtilUUID == uuid; });
    };
    for (auto it = cardWatchers_.begin(); it != cardWatchers_.end();)
        it = followed(it->first) ? std::next(it) : cardWatchers_.erase(it);
    for (const auto& card : cards) {
        auto& watcher = cardWatchers_[card.diskUtilUUID];
        if (watcher && watcher->rootPath() == CardChangeWatcher::resolvedRoot(card.mountPath)) continue;
        watcher = std::make_unique<CardChangeWatcher>(
            card.diskUtilUUID, card.mountPath,
            [poster = background_.poster(), this](const std::string& uuid) {
                poster->post([this, uuid] { emit changed(uuid); });
            },
            watcherTiming_);
    }
}

void CardChangeFollower::stopWatching(const std::string& uuid) {
    cardWatchers_.erase(uuid);
}

void CardChangeFollower::restartQuietTime(const std::string& uuid) {
    auto& timer = freshnessTimers_[uuid];
    if (!timer) {
        timer = std::make_unique<QTimer>();
        timer->setSingleShot(true);
        connect(timer.get(), &QTimer::timeout, this, [this, uuid] { emit quiet(uuid); });
    }
    timer->start(quietTime_);
}

void CardChangeFollower::cancelQuietTime(const std::string& uuid) {
    freshnessTimers_.erase(uuid);
}

}  // namespace tapekeep
