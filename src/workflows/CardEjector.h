#pragma once

#include <QObject>
#include <QString>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "backup/BackupOperation.h"
#include "core/SDCard.h"
#include "workflows/BackgroundTasks.h"
#include "workflows/BackgroundWork.h"
#include "workflows/HeldLeases.h"

namespace tapekeep {

// Ejects cards. Each eject makes one attempt after each of its waits (0, 500 and 1,000 ms by
// default), each on the card as it is now: the card must still be the same volume at the same
// mount path. A manual eject holds the card's browse lease from before it starts until it reports.
//
// Lives on the controller's thread; ejectWithRetries may be called from any thread.
class CardEjector : public QObject {
    Q_OBJECT

public:
    using EjectVolume = std::function<void(const std::filesystem::path& mountPoint, std::stop_token token)>;

    struct Dependencies {
        BackupOperation::VolumeValidator validate;  // the card is still the one that was detected
        EjectVolume ejectVolume;
        std::vector<std::chrono::milliseconds> waits;  // one attempt after each
    };

    explicit CardEjector(Dependencies dependencies, QObject* parent = nullptr);

    // The user's eject: ejectStarting before it starts, ejectFinished once it is over. Refused while
    // another operation holds the card.
    void eject(const SDCard& card);

    // Nothing when the card was ejected, else "Failed to eject: {the last attempt's error}". Throws
    // Cancelled. Constant after construction, so any thread may call it.
    [[nodiscard]] std::optional<std::string> ejectWithRetries(const SDCard& card,
                                                              std::stop_token token) const;

signals:
    // The card is about to go: what reads it must stop.
    void ejectStarting(const std::string& uuid);
    // error is empty after a successful eject.
    void ejectFinished(const QString& uuid, const QString& error);

private:
    const Dependencies dependencies_;
    HeldLeases leases_;
    BackgroundWork background_{this};  // after what its tasks use
};

}  // namespace tapekeep
