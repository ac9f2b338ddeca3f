#pragma once

#include <functional>
#include <memory>

#include "backup/BackupOperation.h"

namespace tapekeep {

class VolumeScanner;

// The identity check that a run makes around every external step: the card is looked up afresh
// by its UUID with a new scanner and must still be the same volume at the same mount path.
// A card that cannot be confirmed (gone, moved, or the system could not tell) stops the run.
BackupOperation::VolumeValidator makeVolumeValidator(
    std::function<std::unique_ptr<VolumeScanner>()> makeScanner);

}  // namespace tapekeep
