#include "workflows/BackupVolumeCheck.h"

#include "backup/BackupOperationError.h"
#include "cards/VolumeScanner.h"
#include "core/Cancelled.h"

namespace tapekeep {

BackupOperation::VolumeValidator makeVolumeValidator(
    std::function<std::unique_ptr<VolumeScanner>()> makeScanner) {
    return [makeScanner = std::move(makeScanner)](const BackupRequest& request, std::stop_token token) {
        throwIfCancelled(token);
        const auto result = makeScanner()->validate(request.card.diskUtilUUID, token);
        throwIfCancelled(token);
        if (result.kind() == ValidateResult::Kind::scanFailed)
            throw BackupOperationError::message("Could not confirm the card's identity. Try again.");
        if (!result.isFound() || *result.card() != request.card)
            throw BackupOperationError::message(
                "Volume identity or mount path changed. Reconnect the card and select it again.");
    };
}

bool isStillMounted(const VolumeScanner& scanner, const SDCard& card, std::stop_token token) {
    const auto result = scanner.validate(card.diskUtilUUID, token);
    throwIfCancelled(token);
    return result.isFound() && *result.card() == card;
}

}  // namespace tapekeep
