#pragma once

#include <QObject>

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/SDCard.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"
#include "workflows/CardTasks.h"
#include "workflows/FeatureAccessAdmission.h"

namespace tapekeep {

class AppSettings;
class CardStateTable;

// The countdowns to automatic backups of newly connected cards. With auto-backup on, a mount makes
// it remember which cards were there; the scan after the mount arms a countdown for each card that
// was not. Before the first scan has finished nobody knows which cards were there, so a mount then
// arms nothing: the cards of that first scan count as present from the start.
//
// Only an idle, finished or failed card that is not being backed up is armed; a card being
// confirmed or backed up is not. A countdown that runs out reports elapsed(uuid); whether the run
// starts is the controller's to decide.
//
// Lives on the controller's thread and is used only there.
class AutoBackupCountdown : public QObject {
    Q_OBJECT

public:
    AutoBackupCountdown(AppSettings& settings, CardStateTable& states, std::optional<bool> autoBackupOverride,
                        std::function<bool(const std::string& uuid)> isRunning, QObject* parent = nullptr);

    // A volume was mounted or unmounted, and a scan follows; present are the cards listed now.
    void mountsChanged(const std::vector<SDCard>& present);
    // A scan found these cards.
    void scanSucceeded(const std::vector<SDCard>& cards);
    void scanFailed();

    // The state becomes autoBackupCountdown(now, now + the setting's delay), in place of any earlier
    // countdown of the card.
    void arm(const SDCard& card);
    // Cancels and forgets the card's countdown and leaves its state alone; false when it had none.
    bool cancel(const std::string& uuid);
    // Cancels every countdown.
    void cancelAll();
    [[nodiscard]] bool contains(const std::string& uuid) const { return autoBackupTasks_.contains(uuid); }

signals:
    // The card's countdown ran out; it is forgotten.
    void elapsed(const std::string& uuid);

private:
    void countdownEnded(const std::string& uuid);

    AppSettings& settings_;
    CardStateTable& states_;
    const std::optional<bool> autoBackupOverride_;  // a front end's --auto
    const std::function<bool(const std::string& uuid)> isRunning_;
    FeatureAccessAdmission featureAccess_;
    std::optional<std::set<std::string>> armAfterScan_;  // the cards present before a mount
    bool hasScanned_ = false;                            // a scan's cards have been applied
    BackgroundWork background_{this};                    // after what its tasks use
    CardTasks autoBackupTasks_{background_.tasks()};
};

}  // namespace tapekeep
