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
        if (!result.isFound() || *result.card() != request.card)
            throw BackupOperationError::message(
                "Volume identity or mount path changed. Reconnect the card and select it again.");
    };
}

}  // namespace tapekeep
