#include "workflows/CardEjector.h"

#include "cards/OperationLock.h"
#include "cards/OperationLockError.h"
#include "core/Cancelled.h"

namespace tapekeep {

CardEjector::CardEjector(Dependencies dependencies, QObject* parent)
    : QObject(parent), dependencies_(std::move(dependencies)) {}

void CardEjector::eject(const SDCard& card) {
    const std::string uuid = card.diskUtilUUID;
    try {
        leases_.hold(uuid, OperationLock::shared().acquire(VolumeUUID{uuid}, OperationKind::browse));
    } catch (const OperationLockError&) {
        emit ejectFinished(QString::fromStdString(uuid), "Cannot eject while another operation is running.");
        return;
    }
    emit ejectStarting(uuid);
    background_.tasks().start([this, card, uuid, poster = background_.poster()](std::stop_token token) {
        std::string failure;
        try {
            failure = ejectWithRetries(card, token).value_or("");
        } catch (const Cancelled&) {
            failure = "Eject was cancelled.";
        }
        poster->post([this, uuid, failure] {
            leases_.release(uuid);
            emit ejectFinished(QString::fromStdString(uuid), QString::fromStdString(failure));
        });
    });
}

std::optional<std::string> CardEjector::ejectWithRetries(const SDCard& card, std::stop_token token) const {
    BackupRequest identity;
    identity.card = card;
    std::string lastError;
    for (const auto wait : dependencies_.waits) {
        if (!sleepFor(wait, token)) throw Cancelled();
        try {
            dependencies_.validate(identity, token);
            dependencies_.ejectVolume(card.mountPath, token);
            return std::nullopt;
        } catch (const Cancelled&) {
            throw;
        } catch (const std::exception& error) {
            lastError = error.what();
        }
    }
    return "Failed to eject: " + lastError;
}

}  // namespace tapekeep
