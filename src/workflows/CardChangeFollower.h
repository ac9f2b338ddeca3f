#pragma once

#include <QObject>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cards/CardChangeWatcher.h"
#include "core/SDCard.h"
#include "workflows/BackgroundWork.h"

class QTimer;

namespace tapekeep {

// Follows changes on the detected cards: one watcher per card at its mount path (resolved), and a
// quiet time per card that each report may restart. A change report arrives as changed(uuid); a card
// whose quiet time has run out since its last restart is reported by quiet(uuid), so that work on
// it waits until the writes have stopped.
//
// Lives on the controller's thread and is used only there.
class CardChangeFollower : public QObject {
    Q_OBJECT

public:
    explicit CardChangeFollower(std::chrono::milliseconds quietTime,
                                CardChangeWatcher::Timing watcherTiming = {}, QObject* parent = nullptr);
    ~CardChangeFollower() override;

    // Watches exactly these cards: a card whose mount path is the same keeps its watcher, one that
    // moved gets a new one, and the watchers of cards not among them stop.
    void follow(const std::vector<SDCard>& cards);
    void stopWatching(const std::string& uuid);

    // The card's quiet time starts again from now.
    void restartQuietTime(const std::string& uuid);
    void cancelQuietTime(const std::string& uuid);

signals:
    void changed(const std::string& uuid);
    void quiet(const std::string& uuid);

private:
    const std::chrono::milliseconds quietTime_;
    const CardChangeWatcher::Timing watcherTiming_;
    BackgroundWork background_{this};  // brings the watchers' reports here, so it outlives them
    std::map<std::string, std::unique_ptr<QTimer>> freshnessTimers_;
    std::map<std::string, std::unique_ptr<CardChangeWatcher>> cardWatchers_;
};

}  // namespace tapekeep
